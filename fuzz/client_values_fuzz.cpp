// Values of plc-host both ways: what is typed in, what is shown, JSON, quoted texts, and their columns in a terminal.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/json_text.h"
#include "base/utf8.h"
#include "client/values/utf8_text.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"

namespace {

using fuzz::demand;
using plc_client::core::TagValue;
using plc_client::core::ValueKind;

constexpr const char* kWords[] = {"0x",
                                  "0b",
                                  "true",
                                  "false",
                                  "on",
                                  "off",
                                  "TRUE",
                                  "FALSE",
                                  "nan",
                                  "-inf",
                                  "1e308",
                                  "1e-320",
                                  "3.4e39",
                                  "1.5",
                                  "255",
                                  "256",
                                  "-128",
                                  "-129",
                                  "32767",
                                  "-32768",
                                  "65535",
                                  "65536",
                                  "4294967295",
                                  "2147483648",
                                  "-2147483648",
                                  "9223372036854775808",
                                  "18446744073709551615",
                                  "18446744073709551616",
                                  "FFFFFFFFFFFFFFFF",
                                  "[1, 2]",
                                  "[",
                                  "]",
                                  ", ",
                                  "[[1, 2], [3, 4]]",
                                  "[1, 2, 3, 4, 5, 6, 7, 8]",
                                  "\\x",
                                  "\\x41",
                                  "\\n",
                                  "\\r\\t",
                                  "\\\"",
                                  "\\\\",
                                  "\"",
                                  "\"abc\"",
                                  "\xC3\xA4",
                                  "\xE4\xB8\xAD",
                                  "\xF0\x9F\x98\x80",
                                  "\xE2\x80\xAE",
                                  "\xED\xA0\x80",
                                  "+",
                                  "-",
                                  "+-1",
                                  "-0",
                                  "=1+1"};

struct Type {
  uint16_t code;
  uint8_t width;
};

constexpr Type kTypes[] = {{0xC1, 1},  {0xC2, 8},  {0xC3, 16}, {0xC4, 32}, {0xC5, 64}, {0xC6, 8},  {0xC7, 16},
                           {0xC8, 32}, {0xC9, 64}, {0xCA, 32}, {0xCB, 64}, {0xCC, 0},  {0xCD, 0},  {0xD0, 0},
                           {0xD1, 8},  {0xD2, 16}, {0xD3, 32}, {0xD4, 64}, {0xD5, 0},  {0xFFF, 16}};

TagEntry entry_of(fuzz::Input* input, std::vector<size_t>* extents) {
  const Type& type = kTypes[input->below(sizeof kTypes / sizeof kTypes[0])];
  TagEntry entry = {};
  entry.type_code = type.code;
  entry.bit_width = type.width;
  const uint8_t shape = input->byte();
  entry.string_length = shape;
  if (type.code == 0xD0 && shape > 0) entry.shape = PLC_STRING;
  if (entry.shape == PLC_STRING || shape % 4 == 0) return entry;
  entry.shape = shape % 4 == 1 ? PLC_ARRAY1 : shape % 4 == 2 ? PLC_ARRAY2 : PLC_ARRAY3;
  for (unsigned i = 0; i < shape % 4U; ++i) extents->push_back(1 + (shape >> (2 + 2 * i) & 3U));
  entry.dim1_high = entry.dim2_high = entry.dim3_high = 3;
  return entry;
}

bool is_number(const TagEntry& entry) {
  const ValueKind kind = plc_client::core::value_kind(entry);
  return kind != ValueKind::kText && kind != ValueKind::kRaw;
}

bool is_not_a_number(const TagEntry& entry, uint64_t bits) {
  return plc_client::core::value_kind(entry) == ValueKind::kReal &&
         plc_client::core::element_number(entry, bits) != plc_client::core::element_number(entry, bits);
}

void judge_json(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents) {
  const nlohmann::ordered_json json = plc_client::core::value_json(entry, value, extents);
  const std::string text = plc_base::json_text(json);
  demand(fuzz::is_shown(text), "a value in JSON is shown text");
  const auto again = nlohmann::ordered_json::parse(text, nullptr, false);
  demand(!again.is_discarded() && again.dump() == json.dump(), "a value in JSON reads back the same");
}

// Bits as they may come from a controller.
void judge_shown(const TagEntry& entry, TagValue value, const std::vector<size_t>& extents) {
  const std::string text = plc_client::core::format_value(entry, value, extents);
  judge_json(entry, value, extents);
  if (plc_client::core::value_kind(entry) == ValueKind::kRaw) return;
  for (const uint64_t bits : value.elements) {
    if (is_not_a_number(entry, bits)) return;
  }
  if (value.text.find('\0') != std::string::npos) return;
  if (static_cast<int64_t>(value.text.size()) > entry.string_length && !is_number(entry)) return;
  const TagValue again = plc_client::core::parse_value(entry, text, extents);
  demand(again.elements == value.elements && again.text == value.text, "what is shown can be typed in");
}

void judge_typed(const TagEntry& entry, const std::string& text, const std::vector<size_t>& extents) {
  TagValue value;
  try {
    value = plc_client::core::parse_value(entry, text, extents);
  } catch (const plc_client::core::ValueError& error) {
    demand(*error.what() != '\0', "a refusal has a reason");
    return;
  }
  size_t count = 1;
  for (const size_t extent : extents) count *= extent;
  demand(!is_number(entry) || value.elements.size() == count, "a value for each element");
  for (const uint64_t bits : value.elements) {
    plc_client::core::element_number(entry, bits);
    demand(entry.bit_width >= 64 || bits >> entry.bit_width == 0, "no bits beyond the type's width");
  }
  judge_shown(entry, std::move(value), extents);
}

void judge_columns(const std::string& text, size_t columns) {
  const std::string fitted = plc_client::core::fit_columns(text, columns);
  demand(plc_client::core::display_width(fitted) <= columns || plc_client::core::display_width(text) <= columns,
         "what fits fits");
  demand(plc_client::core::display_width(plc_client::core::pad_columns(text, columns)) >= columns,
         "what is padded is as wide");
  demand(plc_base::is_utf8(fitted) || !plc_base::is_utf8(text), "cut text ends between characters");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  std::vector<size_t> extents;
  const TagEntry entry = entry_of(&input, &extents);
  demand(plc_client::core::declared_ranges(entry).size() == extents.size(), "a range for each that is declared");
  demand(plc_client::core::declared_type(entry).rfind(plc_client::core::type_name(entry.type_code), 0) == 0,
         "a type is told by its name");
  const uint8_t choice = input.byte();
  if ((choice & 1U) != 0) {
    judge_typed(entry, fuzz::spelled(input.text(), kWords), extents);
    return 0;
  }
  if ((choice & 2U) != 0) {
    judge_columns(fuzz::spelled(input.text(), kWords), choice >> 2U);
    return 0;
  }
  TagValue value;
  if (is_number(entry)) {
    size_t count = 1;
    for (const size_t extent : extents) count *= extent;
    for (size_t i = 0; i < count; ++i) {
      const uint64_t bits = uint64_t{input.double_word()} << 32U | input.double_word();
      value.elements.push_back(entry.bit_width >= 64 ? bits : bits & ((uint64_t{1} << entry.bit_width) - 1));
    }
  } else {
    value.text = input.text();
  }
  judge_shown(entry, std::move(value), extents);
  return 0;
}
