// Values as text, both ways: what the driver stored, shown by type, and what a user types, checked by type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "plc_driver.h"

namespace plc_client::core {

// The value of a variable or of some of its elements.
struct TagValue {
  std::vector<uint64_t> elements;  // the bits of each element, in the order in which they were asked for
  std::string text;                // bytes of a string, or of a type without a width
};

// A value that cannot be written, with the reason for the user.
class ValueError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One element by the variable's type: 120, 0x00FF, 1.5, true.
std::string format_element(const TagEntry& entry, uint64_t bits);

// Bytes as pairs of hexadecimal digits with a blank between them.
std::string hexadecimal_bytes(std::string_view bytes);

// How integers of 64 bits stand in JSON: many readers take every number for a double, which holds 53 bits.
enum class WideIntegers { kNumbers, kTexts };

// One element for JSON: numbers and booleans; null for a REAL that is no number or infinite, which JSON cannot say.
nlohmann::ordered_json element_json(const TagEntry& entry, uint64_t bits, WideIntegers wide = WideIntegers::kNumbers);

// One element as a number, for a chart; a BOOL is 0 or 1.
double element_number(const TagEntry& entry, uint64_t bits);

// A whole value. extents are the lengths of the chosen subscript ranges, empty for a single element; they give the
// nesting of the brackets: [[1, 2], [3, 4]].
std::string format_value(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents);

// The same for JSON. Null for a text that is no UTF-8, and where no bytes were stored for a type without a width.
nlohmann::ordered_json value_json(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents,
                                  WideIntegers wide = WideIntegers::kNumbers);

// Text between double quotes, as it can be written in a value: quotes, backslashes, what a terminal would obey or hide
// and bytes that are not UTF-8 as escapes.
std::string quote_text(std::string_view text);

// One element from decimal (120, -5), hexadecimal (0xFF, the bit pattern of the type's width), binary (0b101), real
// (1.5e3) or true/false/on/off. Throws ValueError when the text is no such value or outside the type's range.
uint64_t parse_element(const TagEntry& entry, std::string_view text);

// A whole value: a scalar for one element, a list [1, 2] or nested lists for several, text for a string, plain or
// between double quotes with escapes. Throws ValueError, also when the number of values is not that of the elements.
TagValue parse_value(const TagEntry& entry, std::string_view text, const std::vector<size_t>& extents);

}  // namespace plc_client::core
