// Turns what a user types into the bits of a value, refusing everything that the variable cannot hold.
#include <algorithm>
#include <utility>

#include "base/values/typed_value.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

plc_base::ValueForm form_of(const TagEntry& entry) {
  switch (value_kind(entry)) {
    case ValueKind::kBool:
      return plc_base::ValueForm::kBool;
    case ValueKind::kSigned:
      return plc_base::ValueForm::kSigned;
    case ValueKind::kUnsigned:
    case ValueKind::kBits:
      return plc_base::ValueForm::kUnsigned;
    case ValueKind::kReal:
      return plc_base::ValueForm::kReal;
    case ValueKind::kText:
    case ValueKind::kRaw:
      break;
  }
  throw ValueError(std::string(type_name(entry.type_code)) + " has no values that can be typed in");
}

template <typename Typed>
Typed accepted(Typed typed) {
  if (!typed.problem.empty()) throw ValueError(typed.problem);
  return typed;
}

}  // namespace

uint64_t parse_element(const TagEntry& entry, std::string_view text) {
  const plc_base::ValueType type{type_name(entry.type_code), form_of(entry), entry.bit_width};
  return accepted(plc_base::typed_number(type, text)).bits;
}

TagValue parse_value(const TagEntry& entry, std::string_view text, const std::vector<size_t>& extents) {
  TagValue value;
  if (value_kind(entry) == ValueKind::kText) {
    value.text = accepted(plc_base::typed_text(text, static_cast<size_t>(std::max(entry.string_length, 0)))).text;
    return value;
  }
  for (const std::string_view element : accepted(plc_base::typed_elements(text, extents)).elements) {
    value.elements.push_back(parse_element(entry, element));
  }
  return value;
}

}  // namespace plc_client::core
