// Names and kinds of the data types.
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

struct TypeRow {
  const char* name;
  ValueKind kind;
  uint16_t code;
};

constexpr TypeRow kTypes[] = {
    {"BOOL", ValueKind::kBool, kTypeBool},    {"SINT", ValueKind::kSigned, 0xC2},
    {"INT", ValueKind::kSigned, 0xC3},        {"DINT", ValueKind::kSigned, 0xC4},
    {"LINT", ValueKind::kSigned, 0xC5},       {"USINT", ValueKind::kUnsigned, 0xC6},
    {"UINT", ValueKind::kUnsigned, 0xC7},     {"UDINT", ValueKind::kUnsigned, 0xC8},
    {"ULINT", ValueKind::kUnsigned, 0xC9},    {"REAL", ValueKind::kReal, 0xCA},
    {"LREAL", ValueKind::kReal, 0xCB},        {"STIME", ValueKind::kRaw, 0xCC},
    {"DATE", ValueKind::kRaw, 0xCD},          {"TIME_OF_DAY", ValueKind::kRaw, 0xCE},
    {"DATE_AND_TIME", ValueKind::kRaw, 0xCF}, {"STRING", ValueKind::kText, 0xD0},
    {"BYTE", ValueKind::kBits, 0xD1},         {"WORD", ValueKind::kBits, 0xD2},
    {"DWORD", ValueKind::kBits, 0xD3},        {"LWORD", ValueKind::kBits, 0xD4},
    {"STRING2", ValueKind::kRaw, 0xD5},
};

const TypeRow* find_type(uint16_t code) {
  for (const TypeRow& row : kTypes) {
    if (row.code == code) return &row;
  }
  return nullptr;
}

}  // namespace

const char* type_name(uint16_t code) {
  const TypeRow* row = find_type(code);
  return row != nullptr ? row->name : "?";
}

bool has_known_type(const TagEntry& entry) { return find_type(entry.type_code) != nullptr; }

ValueKind value_kind(const TagEntry& entry) {
  const TypeRow* row = find_type(entry.type_code);
  if (row == nullptr) return ValueKind::kRaw;
  // A STRING declared without a length is no string to the driver.
  if (row->kind == ValueKind::kText && entry.shape != PLC_STRING) return ValueKind::kRaw;
  return row->kind;
}

std::vector<SubscriptRange> declared_ranges(const TagEntry& entry) {
  const SubscriptRange first{entry.dim1_low, entry.dim1_high};
  const SubscriptRange second{entry.dim2_low, entry.dim2_high};
  const SubscriptRange third{entry.dim3_low, entry.dim3_high};
  switch (entry.shape) {
    case PLC_ARRAY1:
      return {first};
    case PLC_ARRAY2:
      return {second, first};
    case PLC_ARRAY3:
      return {third, second, first};
    default:
      return {};
  }
}

std::string declared_type(const TagEntry& entry) {
  std::string text = type_name(entry.type_code);
  if (entry.shape == PLC_STRING) return text + "(" + std::to_string(entry.string_length) + ")";
  const char* separator = "[";
  for (const SubscriptRange& range : declared_ranges(entry)) {
    text += separator + std::to_string(range.low) + ".." + std::to_string(range.high);
    separator = ",";
  }
  return *separator == ',' ? text + "]" : text;
}

}  // namespace plc_client::core
