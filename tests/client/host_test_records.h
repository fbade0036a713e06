// Tag records and lists for the tests of plc-host.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "client/tags/tag_list.h"

namespace plc_client_test {

struct Range {
  int32_t low;
  int32_t high;
};

struct TypeOf {
  uint16_t code;
  uint8_t width;
};

inline constexpr TypeOf kBool{0xC1, 1};
inline constexpr TypeOf kSint{0xC2, 8};
inline constexpr TypeOf kInt{0xC3, 16};
inline constexpr TypeOf kDint{0xC4, 32};
inline constexpr TypeOf kLint{0xC5, 64};
inline constexpr TypeOf kUint{0xC7, 16};
inline constexpr TypeOf kUlint{0xC9, 64};
inline constexpr TypeOf kReal{0xCA, 32};
inline constexpr TypeOf kLreal{0xCB, 64};
inline constexpr TypeOf kDate{0xCD, 0};
inline constexpr TypeOf kString{0xD0, 0};
inline constexpr TypeOf kWord{0xD2, 16};
inline constexpr TypeOf kLword{0xD4, 64};

inline constexpr uint8_t kDm = 6;
inline constexpr uint8_t kEm = 23;
inline constexpr uint8_t kNoDevice = 30;

// A global record. ranges in the order in which they are declared.
inline TagEntry make_entry(const std::string& name, TypeOf type, const std::vector<Range>& ranges = {}) {
  TagEntry entry;
  std::memset(&entry, 0, sizeof entry);
  std::memcpy(entry.name, name.data(), std::min(name.size(), sizeof entry.name - 1));
  entry.type_code = type.code;
  entry.bit_width = type.width;
  entry.is_global = 1;
  entry.device_kind = kNoDevice;
  const bool dotted = name.find('.') != std::string::npos;
  entry.name_kind = !dotted ? 1 : name.find(']') == std::string::npos ? 2 : 3;
  const uint32_t shapes[] = {PLC_SCALAR, PLC_ARRAY1, PLC_ARRAY2, PLC_ARRAY3};
  entry.shape = shapes[ranges.size()];
  int32_t* lows[] = {&entry.dim1_low, &entry.dim2_low, &entry.dim3_low};
  int32_t* highs[] = {&entry.dim1_high, &entry.dim2_high, &entry.dim3_high};
  for (size_t i = 0; i < ranges.size(); ++i) {
    const size_t place = ranges.size() - 1 - i;
    *lows[place] = ranges[i].low;
    *highs[place] = ranges[i].high;
  }
  return entry;
}

inline TagEntry make_string(const std::string& name, int32_t length) {
  TagEntry entry = make_entry(name, kString);
  entry.shape = PLC_STRING;
  entry.string_length = length;
  return entry;
}

inline TagEntry make_local(TagEntry entry, const std::string& scope) {
  entry.is_global = 0;
  std::memcpy(entry.scope_name, scope.data(), scope.size());
  return entry;
}

inline plc_client::core::TagList make_list(const std::vector<TagEntry>& entries) {
  return plc_client::core::make_tag_list(entries.data(), static_cast<uint32_t>(entries.size()), nullptr, 0, {});
}

}  // namespace plc_client_test
