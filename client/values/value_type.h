// The data types by code: name, and how a value is shown and typed in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "plc_driver.h"

namespace plc_client::core {

inline constexpr uint16_t kTypeBool = 0xC1;

enum class ValueKind {
  kBool,
  kSigned,
  kUnsigned,
  kBits,  // BYTE to LWORD: unsigned, shown in hexadecimal
  kReal,
  kText,
  kRaw,  // no width of its own (dates, times, STRING2): the bytes that the driver stored
};

// Name of the type, "?" when no type of the table has this code.
const char* type_name(uint16_t code);

// Whether its line names a type that the driver knows.
bool has_known_type(const TagEntry& entry);

// How values of this variable are shown and typed in.
ValueKind value_kind(const TagEntry& entry);

// One declared range, both ends included.
struct SubscriptRange {
  int32_t low;
  int32_t high;
};

// Declared ranges, the first one first; empty for everything that is not an array.
std::vector<SubscriptRange> declared_ranges(const TagEntry& entry);

// Type with ranges or length as a tag file declares it: "INT[0..9]", "STRING(20)".
std::string declared_type(const TagEntry& entry);

}  // namespace plc_client::core
