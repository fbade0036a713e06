// Batches that the guarded build refuses.
#include "plc_driver/host/batch_limits.h"

#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/tags/scope_match.h"
#include "plc_driver/tags/tag_lookup.h"

namespace plc {
namespace {

constexpr uint8_t kDeviceEm = 23;

bool is_array(const TagEntry& entry) {
  return entry.shape == PLC_ARRAY1 || entry.shape == PLC_ARRAY2 || entry.shape == PLC_ARRAY3;
}

// The number that requests would carry for a local variable's program.
uint32_t program_number(const TagEntry& entry) {
  const LocalRecord* program = match_scope_whole(LocalInfo, localNum, entry.scope_name);
  return program != nullptr ? program->number & 0xFF : entry.local_index;
}

bool is_same_scope(const TagEntry& one, const TagEntry& other) {
  if (one.is_global == 1 || other.is_global == 1) return one.is_global == other.is_global;
  return strcmp(one.scope_name, other.scope_name) == 0 && program_number(one) == program_number(other);
}

// Why a slot's variable cannot be in this batch, or null.
const char* batch_hindrance(const TagEntry& entry, uint32_t slots, uint32_t count) {
  if (entry.bit_width == 8 || entry.bit_width == 64) return "batch with an 8-bit or 64-bit variable";
  if (entry.bit_width != 1) return nullptr;
  if (is_array(entry) && entry.device_kind == kDeviceEm) return "batch with a BOOL array in EM memory";
  return slots > 1 && count > 1 ? "batch of several elements with a BOOL count above 1" : nullptr;
}

}  // namespace

bool can_batch_be_right(const TagTable& table, uint32_t slots) {
  const TagEntry* first = nullptr;
  for (uint32_t i = 0; i < slots; ++i) {
    const TagEntry* entry = find_entry(table, groupID_table, OMRON_TEMP[i].reg_id);
    if (entry == nullptr) continue;  // fails when its frame is built
    if (first == nullptr) first = entry;
    const char* hindrance = is_same_scope(*first, *entry) ? batch_hindrance(*entry, slots, OMRON_TEMP[i].run)
                                                          : "batch over several programs or scopes";
    if (hindrance != nullptr) {
      print_guard(hindrance);
      return false;
    }
  }
  return true;
}

}  // namespace plc
