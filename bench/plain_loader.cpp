// The plain loader of plain_loader.h.
#include "bench/plain_loader.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace bench {
namespace {

constexpr int kLineBytes = 256;
constexpr uint32_t kFieldLimit = 24;
constexpr uint32_t kFirstIndexedId = 0x40000;
constexpr uint8_t kNoDevice = 30;

// Cuts a line at its commas. Returns the number of fields.
uint32_t split_line(char* line, char** fields) {
  uint32_t count = 0;
  for (char* at = line; at != nullptr && count < kFieldLimit;) {
    fields[count++] = at;
    at = std::strchr(at, ',');
    if (at != nullptr) *at++ = '\0';
  }
  return count;
}

bool read_line(std::FILE* file, char* line) {
  while (std::fgets(line, kLineBytes, file) != nullptr) {
    if (std::strchr(line, '\n') != nullptr) return true;
  }
  return false;
}

uint32_t count_plain(std::FILE* file) {
  char line[kLineBytes];
  char* fields[kFieldLimit];
  uint32_t plain = 0;
  while (read_line(file, line)) {
    const uint32_t count = split_line(line, fields);
    if (count < 6 || std::strtoul(fields[count - 5], nullptr, 10) < kFirstIndexedId) ++plain;
  }
  return plain;
}

void copy_name(const char* field, TagEntry* entry) {
  char* out = entry->name;
  const char* bracket = nullptr;
  while ((bracket = std::strchr(field, '[')) != nullptr) {
    const size_t length = static_cast<size_t>(bracket - field) + 1;
    std::memcpy(out, field, length);
    out += length;
    *out++ = '#';
    field = bracket + 1;
  }
  std::strcpy(out, field);
  entry->name_kind = 1;
  if (std::strchr(entry->name, '.') != nullptr) entry->name_kind = std::strchr(entry->name, ']') != nullptr ? 3 : 2;
}

void set_type(const char* field, TagEntry* entry) {
  for (const TypeEntry& type : type_list) {
    if (std::strcmp(field, type.name) == 0) {
      entry->bit_width = static_cast<uint8_t>(type.bits);
      entry->type_code = type.code;
      return;
    }
  }
}

void set_ranges(char* field, TagEntry* entry) {
  int32_t* const bounds[] = {&entry->dim1_low,  &entry->dim1_high, &entry->dim2_low,
                             &entry->dim2_high, &entry->dim3_low,  &entry->dim3_high};
  if (field[0] != '[') return;
  int32_t scanned[6] = {};
  uint32_t ranges = 0;
  for (char* at = field + 1; at != nullptr && ranges < 3; at = std::strchr(at, '_'), at += at != nullptr ? 1 : 0) {
    char* end = nullptr;
    scanned[2 * ranges] = static_cast<int32_t>(std::strtol(at, &end, 10));
    scanned[2 * ranges + 1] = static_cast<int32_t>(std::strtol(end + 2, &end, 10));
    ++ranges;
  }
  for (uint32_t range = 0; range < ranges; ++range) {
    *bounds[2 * (ranges - 1 - range)] = scanned[2 * range];
    *bounds[2 * (ranges - 1 - range) + 1] = scanned[2 * range + 1];
  }
  entry->shape = ranges == 1 ? PLC_ARRAY1 : ranges == 2 ? PLC_ARRAY2 : PLC_ARRAY3;
}

uint8_t find_device(const char* field) {
  static constexpr struct {
    const char* name;
    uint8_t code;
  } kDevices[] = {{"EM", 23}, {"MR", 17}, {"LR", 18}, {"DM", 6}, {"TM", 8}, {"FM", 25}, {"CM", 7}, {"ZF", 44}};
  for (const auto& device : kDevices) {
    if (std::strstr(field, device.name) != nullptr) return device.code;
  }
  return kNoDevice;
}

void fill_entry(char* const* fields, TagEntry* entry) {
  copy_name(fields[0], entry);
  set_type(fields[1], entry);
  set_ranges(fields[2], entry);
  if (fields[3][0] != '\0' && std::strcmp(fields[1], "STRING") == 0) {
    entry->string_length = static_cast<int32_t>(std::strtol(fields[3], nullptr, 10));
    entry->shape = PLC_STRING;
  }
  entry->tag_id = static_cast<uint32_t>(std::strtoul(fields[7], nullptr, 10));
  entry->is_global = fields[8][0] == '1' ? 1 : 0;
  entry->aux_flag = fields[9][0] == '1' ? 1 : 0;
  entry->local_index = static_cast<uint8_t>(std::strtol(fields[10], nullptr, 10));
  std::strcpy(entry->scope_name, fields[11]);
  entry->device_kind = find_device(fields[12]);
}

}  // namespace

TagEntry* load_plainly(const char* path, uint32_t* count) {
  constexpr uint32_t kColumns = 13;
  std::FILE* const file = std::fopen(path, "r");
  if (file == nullptr) return nullptr;
  const uint32_t plain = count_plain(file);
  auto* const entries = static_cast<TagEntry*>(std::calloc(plain + 1, sizeof(TagEntry)));
  std::rewind(file);
  char line[kLineBytes];
  char* fields[kFieldLimit];
  *count = 0;
  while (entries != nullptr && *count < plain && read_line(file, line)) {
    if (split_line(line, fields) == kColumns) fill_entry(fields, &entries[(*count)++]);
  }
  std::fclose(file);
  return entries;
}

}  // namespace bench
