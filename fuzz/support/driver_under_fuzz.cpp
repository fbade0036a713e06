// The driver as the targets use it.
#include "driver_under_fuzz.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "memory_files.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/tags/tag_file.h"
#include "plc_driver/tags/tag_table.h"

namespace fuzz {
namespace {

CommSettings settings = {0, 0x7F000001, 5000, 0, 0};
ConnContext connection = {-1, 0, 1, 0, 0};

constexpr const char* kTypes[] = {"BOOL", "SINT", "INT", "DINT", "LINT", "REAL", "LREAL", "DATE", "STRING", "WORD"};
constexpr const char* kRanges[] = {"", "[0..9]", "[1..4_2..7]", "[0..2_0..3_0..4]", "[3..2_0..0]"};
constexpr const char* kScopes[] = {"1,0,0,", "0,1,7,MAIN"};
constexpr const char* kDevices[] = {"", ",EM0", ",DM0", ",MR0", ",LR0"};
constexpr const char* kNames[] = {"V", "S.v", "A[1].v"};

// A plain record has its id in column 8; with a device column, column 9 decides that it is plain.
std::string all_tags() {
  std::string text;
  for (const char* type : kTypes) {
    for (const char* range : kRanges) {
      for (const char* scope : kScopes) {
        for (const char* device : kDevices) {
          for (const char* name : kNames) {
            const bool is_string = std::string(type) == "STRING";
            text += std::string(name) + "," + type + "," + range + "," + (is_string ? "20" : "") + ",a,b,c,7," + scope +
                    device + "\n";
          }
        }
      }
    }
  }
  return text;
}

void free_tables() {
  TagLinks* head = &plc::g_plc_tags.links;
  if (head->next == nullptr) return;
  for (TagLinks* at = head->next; at != head;) {
    auto* table = reinterpret_cast<TagTable*>(reinterpret_cast<char*>(at) - offsetof(TagTable, links));
    at = at->next;
    plc::free_tag_arrays(table->entries, table->indexed_groups);
    free(table->name);
    free(table);
  }
}

size_t larger(size_t a, size_t b) { return a > b ? a : b; }

}  // namespace

void restart_driver() {
  free_tables();
  ev_plc_init(&settings);
}

void connect_driver() {
  plc::init = 1;
  connection.socket_fd = 5;
}

void start_driver() { start_driver(all_tags()); }

void start_driver(std::string tags) {
  if (freopen("/dev/null", "w", stdout) == nullptr) abort();
  restart_driver();
  set_tag_file(std::move(tags));
  connect_driver();
  uint8_t data[8] = {};
  RegRequest request = {0, 0, 0, 0};
  RegValue value = {1, data};
  check_result(ev_plc_read(&request, &value, &connection));
  connect_driver();
}

uint32_t tag_count() { return get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv")->tag_count; }

const TagEntry* tag_at(uint32_t id) {
  const TagTable* table = get_tagtable(&plc::g_plc_tags, "PLC7F000001_0.csv");
  return table != nullptr && id < table->tag_count ? &table->entries[id] : nullptr;
}

ConnContext* context() { return &connection; }

void check_result(uint32_t result) {
  if (result != PLC_OK && result != PLC_NO_CONNECT && result != PLC_FAILED && result != PLC_NO_WRITER) abort();
}

uint8_t* host_buffer(size_t bytes) {
  // The sanitizer watches what lies behind the array; buffers end where it ends.
  alignas(8) static uint8_t storage[8192];
  if (bytes > sizeof storage) abort();
  uint8_t* buffer = storage + sizeof storage - bytes;
  memset(buffer, 0, bytes);
  return buffer;
}

size_t read_buffer_bytes(const TagEntry& tag, uint32_t count) {
  constexpr size_t kLongestString = 4082;
  constexpr uint32_t kMostElements = 2048;  // no request names more
  const size_t elements = count < kMostElements ? count : kMostElements;
  switch (tag.bit_width) {
    case 16:
      return larger(4, 2 * elements);
    case 32:
    case 64:
      return larger(4, 4 * elements);
    case 0:
      return kLongestString;
    case 1:
      return 8;
    default:
      return 4;
  }
}

size_t write_buffer_bytes(const TagEntry& tag, uint32_t count) {
  constexpr uint32_t kMostUnits = 512;  // no request carries more
  const size_t units = count < kMostUnits ? count : kMostUnits;
  const bool is_scalar = tag.shape == PLC_SCALAR;
  switch (tag.bit_width) {
    case 16:
      return is_scalar ? 2 : larger(1, 2 * units);
    case 32:
      return is_scalar ? 4 : larger(1, 4 * units);
    case 64:
      return is_scalar ? 8 : larger(1, 4 * units);
    case 0:
      return larger(2, 2 * units);
    default:
      return larger(1, (units + 7) / 8);
  }
}

}  // namespace fuzz
