// A tag file of any bytes, then every id of it: looked up, read, written.
#include <cstring>
#include <string>

#include "driver_under_fuzz.h"
#include "memory_files.h"
#include "memory_transport.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_line.h"
#include "plc_driver/tags/tag_lookup.h"
#include "plc_driver/tags/tag_table.h"

namespace {

void transfer(uint32_t id, const TagEntry& tag) {
  constexpr uint32_t kCount = 3;
  // Two replies of 40 zero bytes for each transfer.
  static const uint8_t kReplies[] = {0, 0, 40, 0, 0, 0, 0, 40, 0, 0};
  const uint8_t reg_type = id >= 0x40000 ? static_cast<uint8_t>(id >> 16) : uint8_t{0};
  RegRequest request = {0, 0, reg_type, id << 16 | 1};
  uint8_t* data = fuzz::host_buffer(fuzz::read_buffer_bytes(tag, kCount));
  RegValue value = {kCount, data};
  for (int write = 0; write < 2; ++write) {
    fuzz::Input replies(kReplies, sizeof kReplies);
    fuzz::feed_replies(&replies);
    fuzz::connect_driver();
    fuzz::check_result(write != 0 ? ev_plc_write(&request, &value, fuzz::context())
                                  : ev_plc_read(&request, &value, fuzz::context()));
    fuzz::feed_replies(nullptr);
  }
}

// Every text of a record ends within its field.
void check_entry(const TagEntry& tag) {
  if (memchr(tag.name, 0, sizeof tag.name) == nullptr) abort();
  if (memchr(tag.scope_name, 0, sizeof tag.scope_name) == nullptr) abort();
}

// A line by itself, as the driver's diagnosis takes one.
void parse_line(const std::string& text) {
  TagEntry entry = {};
  pase_str(text.substr(0, text.find('\n')).substr(0, 255).c_str(), &entry);
  check_entry(entry);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::start_driver();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  constexpr uint32_t kMostTransfers = 8;
  fuzz::restart_driver();
  memset(plc::groupID_table, 0, sizeof plc::groupID_table);
  const std::string text(reinterpret_cast<const char*>(bytes), length);
  parse_line(text);
  fuzz::set_tag_file(text);
  fuzz::connect_driver();
  uint8_t first[4082];
  RegRequest request = {0, 0, 0, 0};
  RegValue value = {0, first};
  fuzz::check_result(ev_plc_read(&request, &value, fuzz::context()));
  const TagTable* table = get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv");
  if (table == nullptr) return 0;
  uint32_t transfers = 0;
  for (uint32_t id = 0; id < table->tag_count; ++id) {
    check_entry(table->entries[id]);
    if (id <= 0xFFFF && transfers++ < kMostTransfers) transfer(id, table->entries[id]);
  }
  for (const IndexedTagEntry* group = table->indexed_groups; group != nullptr && group->entries != nullptr; ++group) {
    for (uint32_t i = 0; i < group->count; ++i) {
      check_entry(group->entries[i]);
      const uint32_t id = group->entries[0].tag_id + i;
      const TagEntry* found = id <= 0xFFFFFF ? plc::find_entry(*table, plc::groupID_table, id) : nullptr;
      if (found != nullptr && transfers++ < kMostTransfers) transfer(id, *found);
    }
  }
  return 0;
}
