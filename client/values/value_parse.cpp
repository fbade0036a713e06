// Turns what a user types into the bits of a value, refusing everything that the variable cannot hold.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

#include "client/values/value_text.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

std::string_view trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

[[noreturn]] void refuse(std::string_view text, const TagEntry& entry, const std::string& reason) {
  throw ValueError(quoted(text) + " is no " + type_name(entry.type_code) + " value: " + reason);
}

uint64_t largest_unsigned(unsigned width) {
  return width >= 64 ? std::numeric_limits<uint64_t>::max() : (uint64_t{1} << width) - 1;
}

// Digits of a prefixed number: the bit pattern itself.
uint64_t parse_pattern(const TagEntry& entry, std::string_view text, int base) {
  uint64_t bits = 0;
  const std::string_view digits = text.substr(2);
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), bits, base);
  const bool whole = end.ptr == digits.data() + digits.size();
  if (end.ec == std::errc::invalid_argument || !whole) refuse(text, entry, "not all of it is a number");
  if (end.ec == std::errc::result_out_of_range || bits > largest_unsigned(entry.bit_width)) {
    refuse(text, entry, "more than " + std::to_string(entry.bit_width) + " bits");
  }
  return bits;
}

template <typename Number>
Number parse_decimal(const TagEntry& entry, std::string_view text, Number low, Number high) {
  Number number = 0;
  const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), number, 10);
  const bool whole = end.ptr == text.data() + text.size();
  if (end.ec == std::errc::invalid_argument || !whole) refuse(text, entry, "not all of it is a number");
  if (end.ec == std::errc::result_out_of_range || number < low || number > high) {
    refuse(text, entry, "outside " + std::to_string(low) + " to " + std::to_string(high));
  }
  return number;
}

uint64_t parse_integer(const TagEntry& entry, std::string_view text) {
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) return parse_pattern(entry, text, 16);
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'b' || text[1] == 'B')) return parse_pattern(entry, text, 2);
  const std::string_view digits = text.size() > 1 && text[0] == '+' && text[1] != '-' ? text.substr(1) : text;
  const uint64_t mask = largest_unsigned(entry.bit_width);
  if (value_kind(entry) == ValueKind::kSigned) {
    const auto high = static_cast<int64_t>(mask >> 1);
    return static_cast<uint64_t>(parse_decimal<int64_t>(entry, digits, -high - 1, high)) & mask;
  }
  if (!digits.empty() && digits[0] == '-') refuse(text, entry, "outside 0 to " + std::to_string(mask));
  return parse_decimal<uint64_t>(entry, digits, 0, mask);
}

template <typename Number, typename Bits>
uint64_t parse_real(const TagEntry& entry, std::string_view text) {
  const std::string_view digits = text.size() > 1 && text[0] == '+' && text[1] != '-' ? text.substr(1) : text;
  Number number = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool whole = end.ptr == digits.data() + digits.size();
  if (end.ec == std::errc::invalid_argument || !whole) refuse(text, entry, "not all of it is a number");
  if (end.ec == std::errc::result_out_of_range) refuse(text, entry, "too large or too small for the type");
  Bits bits = 0;
  static_assert(sizeof bits == sizeof number);
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

uint64_t parse_bool(const TagEntry& entry, std::string_view text) {
  if (text == "true" || text == "TRUE" || text == "on" || text == "1") return 1;
  if (text == "false" || text == "FALSE" || text == "off" || text == "0") return 0;
  refuse(text, entry, "use true, false, on, off, 1 or 0");
}

unsigned hexadecimal_digit(std::string_view text, size_t at) {
  unsigned digit = 0;
  if (at < text.size()) {
    const std::from_chars_result end = std::from_chars(text.data() + at, text.data() + at + 1, digit, 16);
    if (end.ec == std::errc()) return digit;
  }
  throw ValueError("\\x in " + quoted(text) + " needs two hexadecimal digits");
}

// Takes off the double quotes and the escapes between them; text without quotes stands as it is.
std::string unquote_text(std::string_view text) {
  if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::string(text);
  const std::string_view inner = text.substr(1, text.size() - 2);
  std::string plain;
  for (size_t at = 0; at < inner.size(); ++at) {
    if (inner[at] != '\\') {
      plain += inner[at];
      continue;
    }
    const char escape = ++at < inner.size() ? inner[at] : '\0';
    if (escape == 'n') {
      plain += '\n';
    } else if (escape == 'r') {
      plain += '\r';
    } else if (escape == 't') {
      plain += '\t';
    } else if (escape == '"' || escape == '\\') {
      plain += escape;
    } else if (escape == 'x') {
      plain += static_cast<char>(hexadecimal_digit(inner, at + 1) << 4 | hexadecimal_digit(inner, at + 2));
      at += 2;
    } else {
      throw ValueError("unknown escape in " + quoted(text) + ": use \\n, \\r, \\t, \\\", \\\\ or \\xNN");
    }
  }
  return plain;
}

std::string parse_string(const TagEntry& entry, std::string_view text) {
  std::string plain = unquote_text(text);
  if (plain.find('\0') != std::string::npos) {
    throw ValueError("a string ends at its first zero byte: none can be in it");
  }
  if (plain.size() > static_cast<size_t>(std::max(entry.string_length, 0))) {
    throw ValueError(quoted(text) + " has " + std::to_string(plain.size()) + " bytes, the string holds " +
                     std::to_string(entry.string_length));
  }
  return plain;
}

// Where the item that starts at `start` ends: at a comma outside brackets or at the end. Throws ValueError when its
// brackets do not match.
size_t item_end(std::string_view items, size_t start) {
  int depth = 0;
  size_t at = start;
  for (; at < items.size() && depth >= 0 && (items[at] != ',' || depth > 0); ++at) {
    if (items[at] == '[') ++depth;
    if (items[at] == ']') --depth;
  }
  if (depth != 0) throw ValueError(quoted(items) + " has brackets that do not match");
  return at;
}

// Cuts "[a, [b, c]]" into "a" and "[b, c]".
std::vector<std::string_view> list_items(std::string_view text) {
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
    throw ValueError(quoted(text) + " is no list: write [1, 2, ...]");
  }
  const std::string_view inner = text.substr(1, text.size() - 2);
  std::vector<std::string_view> items;
  if (trim(inner).empty()) return items;
  for (size_t start = 0; start <= inner.size();) {
    const size_t end = item_end(inner, start);
    items.push_back(trim(inner.substr(start, end - start)));
    start = end + 1;
  }
  return items;
}

size_t product(const std::vector<size_t>& extents, size_t from) {
  size_t count = 1;
  for (size_t i = from; i < extents.size(); ++i) count *= extents[i];
  return count;
}

void parse_list(const TagEntry& entry, std::string_view text, const std::vector<size_t>& extents, size_t depth,
                std::vector<uint64_t>& elements) {
  if (depth == extents.size()) {
    elements.push_back(parse_element(entry, text));
    return;
  }
  const std::vector<std::string_view> items = list_items(text);
  bool nested = false;
  for (const std::string_view item : items) nested = nested || (!item.empty() && item.front() == '[');
  const size_t expected = nested ? extents[depth] : product(extents, depth);
  if (items.size() != expected) {
    throw ValueError(quoted(text) + " has " + std::to_string(items.size()) + " values where " +
                     std::to_string(expected) + " belong");
  }
  // A flat list fills the elements in their order whatever the number of ranges.
  for (const std::string_view item : items) {
    parse_list(entry, item, extents, nested ? depth + 1 : extents.size(), elements);
  }
}

}  // namespace

uint64_t parse_element(const TagEntry& entry, std::string_view text) {
  const std::string_view value = trim(text);
  switch (value_kind(entry)) {
    case ValueKind::kBool:
      return parse_bool(entry, value);
    case ValueKind::kSigned:
    case ValueKind::kUnsigned:
    case ValueKind::kBits:
      return parse_integer(entry, value);
    case ValueKind::kReal:
      return entry.bit_width == 32 ? parse_real<float, uint32_t>(entry, value)
                                   : parse_real<double, uint64_t>(entry, value);
    case ValueKind::kText:
    case ValueKind::kRaw:
      break;
  }
  throw ValueError(std::string(type_name(entry.type_code)) + " has no values that can be typed in");
}

TagValue parse_value(const TagEntry& entry, std::string_view text, const std::vector<size_t>& extents) {
  TagValue value;
  if (value_kind(entry) == ValueKind::kText) {
    value.text = parse_string(entry, text);
  } else {
    parse_list(entry, trim(text), extents, 0, value.elements);
  }
  return value;
}

}  // namespace plc_client::core
