// Turns what a user types into the bits of a value, refusing everything that the type cannot hold.
#include "base/values/typed_value.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <system_error>

#include "base/shown_text.h"
#include "base/text.h"
#include "base/utf8.h"

namespace plc_base {
namespace {

std::string_view trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

TypedNumber refused(const ValueType& type, std::string_view text, const std::string& reason) {
  return {0, quoted(text) + " is no " + type.name + " value: " + reason};
}

// A text that is no number at all, with how one is written.
TypedNumber no_number(const ValueType& type, std::string_view text) {
  switch (type.form) {
    case ValueForm::kReal:
      return refused(type, text, "write 2.5 or 1.5e3, with a point");
    case ValueForm::kUnsigned:
      return refused(type, text, "write 120, 0xFF or 0b101");
    default:
      return refused(type, text, "write 120, -5, 0xFF or 0b101");
  }
}

uint64_t largest_unsigned(unsigned bits) {
  return bits >= 64 ? std::numeric_limits<uint64_t>::max() : (uint64_t{1} << bits) - 1;
}

std::string_view without_plus(std::string_view text) {
  return text.size() > 1 && text[0] == '+' && text[1] != '-' ? text.substr(1) : text;
}

// Digits of a prefixed number: the bit pattern itself.
TypedNumber pattern(const ValueType& type, std::string_view text, int base) {
  TypedNumber number;
  const std::string_view digits = text.substr(2);
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), number.bits, base);
  const bool is_whole = end.ptr == digits.data() + digits.size();
  if (end.ec == std::errc::invalid_argument || !is_whole) return no_number(type, text);
  if (end.ec == std::errc::result_out_of_range || number.bits > largest_unsigned(type.bits)) {
    return refused(type, text, "more than " + std::to_string(type.bits) + " bits");
  }
  return number;
}

template <typename Number>
TypedNumber decimal(const ValueType& type, std::string_view text, Number low, Number high) {
  Number number = 0;
  const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), number, 10);
  const bool is_whole = end.ptr == text.data() + text.size();
  if (end.ec == std::errc::invalid_argument || !is_whole) return no_number(type, text);
  if (end.ec == std::errc::result_out_of_range || number < low || number > high) {
    return refused(type, text, "outside " + std::to_string(low) + " to " + std::to_string(high));
  }
  return {static_cast<uint64_t>(number) & largest_unsigned(type.bits), {}};
}

TypedNumber integer(const ValueType& type, std::string_view text) {
  const auto has_prefix = [&](char lower, char upper) {
    return text.size() > 2 && text[0] == '0' && (text[1] == lower || text[1] == upper);
  };
  if (has_prefix('x', 'X')) return pattern(type, text, 16);
  if (has_prefix('b', 'B')) return pattern(type, text, 2);
  const std::string_view digits = without_plus(text);
  const uint64_t mask = largest_unsigned(type.bits);
  if (type.form == ValueForm::kSigned) {
    const auto high = static_cast<int64_t>(mask >> 1U);
    return decimal<int64_t>(type, digits, -high - 1, high);
  }
  if (digits.size() > 1 && digits[0] == '-' && digits.find_first_not_of('0', 1) == std::string_view::npos) {
    return refused(type, text, "write 0, without a sign");
  }
  if (!digits.empty() && digits[0] == '-') return refused(type, text, "outside 0 to " + std::to_string(mask));
  return decimal<uint64_t>(type, digits, 0, mask);
}

template <typename Number, typename Bits>
TypedNumber real(const ValueType& type, std::string_view text) {
  const std::string_view digits = without_plus(text);
  Number number = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool is_whole = end.ptr == digits.data() + digits.size();
  if (end.ec == std::errc::invalid_argument || !is_whole) return no_number(type, text);
  if (end.ec == std::errc::result_out_of_range) return refused(type, text, "too large or too small for the type");
  Bits bits = 0;
  static_assert(sizeof bits == sizeof number);
  std::memcpy(&bits, &number, sizeof bits);
  return {bits, {}};
}

TypedNumber flag(const ValueType& type, std::string_view text) {
  const auto is_word = [text](std::string_view word) { return is_same_but_case(text, word); };
  if (is_word("true") || is_word("on") || text == "1") return {1, {}};
  if (is_word("false") || is_word("off") || text == "0") return {0, {}};
  return refused(type, text, "use true, false, on, off, 1 or 0");
}

// The text between quotes; of a long one its beginning, which tells enough of it.
std::string quoted_beginning(std::string_view text) {
  constexpr size_t kMostBytes = 80;
  if (text.size() <= kMostBytes) return quoted(text);
  return "the text that begins with " + quoted(whole_characters(text, kMostBytes / 2));
}

std::optional<unsigned> hexadecimal_digit(std::string_view text, size_t at) {
  unsigned digit = 0;
  if (at >= text.size()) return std::nullopt;
  const std::from_chars_result end = std::from_chars(text.data() + at, text.data() + at + 1, digit, 16);
  return end.ec == std::errc() ? std::optional<unsigned>(digit) : std::nullopt;
}

// The character of an escape without digits; 0 for none of them.
char escaped_character(char escape) {
  switch (escape) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case '"':
    case '\\':
      return escape;
    default:
      return '\0';
  }
}

// What the escapes between the double quotes of the text stand for.
TypedText unescaped(std::string_view text) {
  const std::string_view inner = text.substr(1, text.size() - 2);
  TypedText plain;
  for (size_t at = 0; at < inner.size(); ++at) {
    if (inner[at] == '"') return {{}, "a double quote inside " + quoted(text) + " is written \\\""};
    if (inner[at] != '\\') {
      plain.text += inner[at];
      continue;
    }
    const char escape = ++at < inner.size() ? inner[at] : '\0';
    if (const char character = escaped_character(escape); character != '\0') {
      plain.text += character;
    } else if (escape == 'x') {
      const auto high = hexadecimal_digit(inner, at + 1);
      const auto low = hexadecimal_digit(inner, at + 2);
      if (!high || !low) return {{}, "\\x in " + quoted(text) + " needs two hexadecimal digits"};
      plain.text += static_cast<char>(*high << 4U | *low);
      at += 2;
    } else {
      return {{}, "unknown escape in " + quoted(text) + ": use \\n, \\r, \\t, \\\", \\\\ or \\xNN"};
    }
  }
  return plain;
}

// Where the item that starts at `start` ends: at a comma outside brackets or at the end. Nothing when its brackets do
// not match.
std::optional<size_t> item_end(std::string_view items, size_t start) {
  int depth = 0;
  size_t at = start;
  for (; at < items.size() && depth >= 0 && (items[at] != ',' || depth > 0); ++at) {
    if (items[at] == '[') ++depth;
    if (items[at] == ']') --depth;
  }
  return depth == 0 ? std::optional<size_t>(at) : std::nullopt;
}

// Cuts "[a, [b, c]]" into "a" and "[b, c]".
TypedList list_items(std::string_view text) {
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
    return {{}, quoted(text) + " is not a list: write [1, 2, ...]"};
  }
  const std::string_view inner = text.substr(1, text.size() - 2);
  TypedList list;
  if (trim(inner).empty()) return list;
  for (size_t start = 0; start <= inner.size();) {
    const auto end = item_end(inner, start);
    if (!end) return {{}, quoted(inner) + " has brackets that do not match"};
    list.elements.push_back(trim(inner.substr(start, *end - start)));
    start = *end + 1;
  }
  return list;
}

size_t product(const std::vector<size_t>& extents, size_t from) {
  size_t count = 1;
  for (size_t i = from; i < extents.size(); ++i) count *= extents[i];
  return count;
}

std::string wrong_count(std::string_view text, const std::vector<std::string_view>& elements, size_t expected) {
  const std::string problem = quoted(text) + " has " + plural(elements.size(), "value") + " where " +
                              std::to_string(expected) + (expected == 1 ? " belongs" : " belong");
  const bool is_apart = elements.size() == 1 && elements[0].find_first_of(" \t;") != std::string_view::npos;
  return is_apart ? problem + ": commas stand between them" : problem;
}

// Puts the elements of the text behind the others, or says what is wrong.
std::string take_elements(std::string_view text, const std::vector<size_t>& extents, size_t depth,
                          std::vector<std::string_view>& elements) {
  if (depth == extents.size()) {
    elements.push_back(text);
    return {};
  }
  const TypedList list = list_items(text);
  if (!list.problem.empty()) return list.problem;
  bool is_nested = false;
  for (const std::string_view item : list.elements) is_nested = is_nested || (!item.empty() && item.front() == '[');
  const size_t expected = is_nested ? extents[depth] : product(extents, depth);
  if (list.elements.size() != expected) return wrong_count(text, list.elements, expected);
  for (const std::string_view item : list.elements) {
    std::string problem = take_elements(item, extents, is_nested ? depth + 1 : extents.size(), elements);
    if (!problem.empty()) return problem;
  }
  return {};
}

// A byte as it can be written in a value.
void append_escape(unsigned char byte, std::string& quoted) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  if (byte == '\n') {
    quoted += "\\n";
  } else if (byte == '\r') {
    quoted += "\\r";
  } else if (byte == '\t') {
    quoted += "\\t";
  } else {
    quoted += "\\x";
    quoted += kDigits[byte >> 4];
    quoted += kDigits[byte & 0xF];
  }
}

// The text with escapes for what a terminal would obey or hide, and with a backslash before each of these signs.
std::string escaped(std::string_view text, std::string_view signs) {
  std::string written;
  for (size_t at = 0; at < text.size();) {
    const auto first = first_code_point(text.substr(at));
    if (!first || is_hidden(first->value)) {
      const size_t end = at + (first ? first->bytes : 1);
      for (; at < end; ++at) append_escape(static_cast<unsigned char>(text[at]), written);
      continue;
    }
    if (signs.find(text[at]) != std::string_view::npos) written += '\\';
    written += text.substr(at, first->bytes);
    at += first->bytes;
  }
  return written;
}

}  // namespace

TypedNumber typed_number(const ValueType& type, std::string_view text) {
  const std::string_view value = trim(text);
  switch (type.form) {
    case ValueForm::kBool:
      return flag(type, value);
    case ValueForm::kReal:
      return type.bits == 32 ? real<float, uint32_t>(type, value) : real<double, uint64_t>(type, value);
    case ValueForm::kSigned:
    case ValueForm::kUnsigned:
      break;
  }
  return integer(type, value);
}

TypedText typed_text(std::string_view text, size_t most_bytes) {
  const bool has_quotes = text.size() >= 2 && text.front() == '"' && text.back() == '"';
  // Somebody meant quotes: what a controller gets is not guessed from half of them.
  if (const std::string_view bare = trim(text); !has_quotes && bare.size() >= 2 && bare.front() == '"') {
    return {{},
            quoted(text) + " begins with a quote that its end does not have: write \"abc\", or \"\\\"abc\" with it"};
  }
  TypedText typed = has_quotes ? unescaped(text) : TypedText{std::string(text), {}};
  if (!typed.problem.empty()) return {{}, typed.problem};
  if (typed.text.find('\0') != std::string::npos) {
    return {{}, "a string ends at its first zero byte: none can be in it"};
  }
  if (typed.text.size() > most_bytes) {
    return {{},
            quoted_beginning(text) + " has " + std::to_string(typed.text.size()) + " bytes, the string holds " +
                std::to_string(most_bytes)};
  }
  return typed;
}

std::string quoted_with_escapes(std::string_view text) { return '"' + escaped(text, "\"\\") + '"'; }

std::string text_with_escapes(std::string_view text) { return escaped(text, "\\"); }

TypedList typed_elements(std::string_view text, const std::vector<size_t>& extents) {
  TypedList list;
  list.problem = take_elements(trim(text), extents, 0, list.elements);
  if (!list.problem.empty()) list.elements.clear();
  return list;
}

}  // namespace plc_base
