// Register id -> record.
#include "plc_driver/tags/tag_lookup.h"

#include "plc_driver/tags/tag_file.h"

namespace plc {

IdRange check_id(const TagTable& table, uint32_t id) {
  if (id <= kLastCheckedPlainId && id >= table.tag_count) return IdRange::kPlainMissing;
  // Strict: the largest id of a file cannot itself be addressed (D10).
  if (id >= kFirstIndexedId && id >= table.max_indexed_id) return IdRange::kIndexedMissing;
  return IdRange::kInside;
}

// The group, or null when the table has no such group; null entries end the array.
static const IndexedTagEntry* find_group(const IndexedTagEntry* groups, uint32_t number) {
  if (groups == nullptr) return nullptr;
  for (uint32_t g = 0; groups[g].entries != nullptr; ++g) {
    if (g == number) return &groups[g];
  }
  return nullptr;
}

TagEntry* find_entry(const TagTable& table, const uint32_t* group_ids, uint32_t id) {
  if (id < kFirstIndexedId) return id < table.tag_count ? &table.entries[id] : nullptr;
  const uint32_t block = (id >> kIdBlockShift) - kFirstIdBlock;
  if (block >= kIdBlocks) return nullptr;
  const IndexedTagEntry* group = find_group(table.indexed_groups, group_ids[block]);
  if (group == nullptr) return nullptr;
  const uint32_t index = id - group->entries[0].tag_id;
  return index < group->count ? &group->entries[index] : nullptr;
}

}  // namespace plc
