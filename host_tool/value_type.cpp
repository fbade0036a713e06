// Names and kinds of the data types.
#include "value_type.h"

#include "element_offset.h"

namespace plc_host {
namespace {

struct TypeRow {
  uint16_t code;
  const char* name;
  ValueKind kind;
};

constexpr TypeRow kTypes[] = {
    {kTypeBool, "BOOL", ValueKind::kBool},    {0xC2, "SINT", ValueKind::kSigned},
    {0xC3, "INT", ValueKind::kSigned},        {0xC4, "DINT", ValueKind::kSigned},
    {0xC5, "LINT", ValueKind::kSigned},       {0xC6, "USINT", ValueKind::kUnsigned},
    {0xC7, "UINT", ValueKind::kUnsigned},     {0xC8, "UDINT", ValueKind::kUnsigned},
    {0xC9, "ULINT", ValueKind::kUnsigned},    {0xCA, "REAL", ValueKind::kReal},
    {0xCB, "LREAL", ValueKind::kReal},        {0xCC, "STIME", ValueKind::kRaw},
    {0xCD, "DATE", ValueKind::kRaw},          {0xCE, "TIME_OF_DAY", ValueKind::kRaw},
    {0xCF, "DATE_AND_TIME", ValueKind::kRaw}, {0xD0, "STRING", ValueKind::kText},
    {0xD1, "BYTE", ValueKind::kBits},         {0xD2, "WORD", ValueKind::kBits},
    {0xD3, "DWORD", ValueKind::kBits},        {0xD4, "LWORD", ValueKind::kBits},
    {0xD5, "STRING2", ValueKind::kRaw},
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

ValueKind value_kind(const TagEntry& entry) {
  const TypeRow* row = find_type(entry.type_code);
  if (row == nullptr) return ValueKind::kRaw;
  // A STRING declared without a length is no string to the driver.
  if (row->kind == ValueKind::kText && entry.shape != PLC_STRING) return ValueKind::kRaw;
  return row->kind;
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

}  // namespace plc_host
