// Shows values by type, as text and as JSON.
#include <charconv>
#include <cmath>
#include <cstring>
#include <nlohmann/json.hpp>

#include "base/utf8.h"
#include "base/values/typed_value.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

constexpr size_t kNumberBytes = 64;  // longer than any shortest LREAL or 64-bit integer

int64_t sign_extend(uint64_t bits, unsigned width) {
  if (width == 0 || width >= 64) return static_cast<int64_t>(bits);
  const uint64_t sign = uint64_t{1} << (width - 1);
  return static_cast<int64_t>(((bits & ((sign << 1) - 1)) ^ sign) - sign);
}

template <typename Number>
std::string number_text(Number number) {
  char digits[kNumberBytes];
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof digits, number);
  return std::string(digits, end.ptr);
}

float single_of(uint64_t bits) {
  const auto word = static_cast<uint32_t>(bits);
  float number = 0;
  std::memcpy(&number, &word, sizeof number);
  return number;
}

double double_of(uint64_t bits) {
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

std::string hexadecimal(uint64_t bits, unsigned width) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text = "0x";
  for (unsigned shift = width; shift > 0; shift -= 4) text += kDigits[(bits >> (shift - 4)) & 0xF];
  return text;
}

// Appends the elements from next on, bracketed as the extents from depth on describe.
void append_list(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents, size_t depth,
                 size_t& next, std::string& text) {
  if (depth == extents.size()) {
    text += format_element(entry, value.elements.at(next++));
    return;
  }
  text += '[';
  for (size_t i = 0; i < extents[depth]; ++i) {
    if (i > 0) text += ", ";
    append_list(entry, value, extents, depth + 1, next, text);
  }
  text += ']';
}

nlohmann::ordered_json nested_json(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents,
                                   WideIntegers wide, size_t depth, size_t& next) {
  if (depth == extents.size()) return element_json(entry, value.elements.at(next++), wide);
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (size_t i = 0; i < extents[depth]; ++i) list.push_back(nested_json(entry, value, extents, wide, depth + 1, next));
  return list;
}

}  // namespace

std::string hexadecimal_bytes(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    if (!text.empty()) text += ' ';
    text += hexadecimal(static_cast<unsigned char>(byte), 8).substr(2);
  }
  return text;
}

std::string format_element(const TagEntry& entry, uint64_t bits) {
  switch (value_kind(entry)) {
    case ValueKind::kBool:
      return (bits & 1) != 0 ? "true" : "false";
    case ValueKind::kSigned:
      return number_text(sign_extend(bits, entry.bit_width));
    case ValueKind::kUnsigned:
      return number_text(bits);
    case ValueKind::kReal:
      return entry.bit_width == 32 ? number_text(single_of(bits)) : number_text(double_of(bits));
    case ValueKind::kBits:
    case ValueKind::kText:
    case ValueKind::kRaw:
      break;
  }
  return hexadecimal(bits, entry.bit_width == 0 ? 16 : entry.bit_width);
}

nlohmann::ordered_json element_json(const TagEntry& entry, uint64_t bits, WideIntegers wide) {
  const bool is_text = wide == WideIntegers::kTexts && entry.bit_width == 64;
  switch (value_kind(entry)) {
    case ValueKind::kBool:
      return (bits & 1) != 0;
    case ValueKind::kSigned:
      if (is_text) return number_text(sign_extend(bits, entry.bit_width));
      return sign_extend(bits, entry.bit_width);
    case ValueKind::kReal: {
      const double number = entry.bit_width == 32 ? static_cast<double>(single_of(bits)) : double_of(bits);
      if (!std::isfinite(number)) return nullptr;
      if (number == 0 && std::signbit(number)) return number;  // of "-0" a parser makes the integer 0
      // The shortest text of a REAL has fewer digits than that of the same number as an LREAL.
      return entry.bit_width == 32 ? nlohmann::ordered_json::parse(number_text(single_of(bits)))
                                   : nlohmann::ordered_json(number);
    }
    case ValueKind::kUnsigned:
    case ValueKind::kBits:
    case ValueKind::kText:
    case ValueKind::kRaw:
      break;
  }
  if (is_text) return number_text(bits);
  return bits;
}

double element_number(const TagEntry& entry, uint64_t bits) {
  switch (value_kind(entry)) {
    case ValueKind::kSigned:
      return static_cast<double>(sign_extend(bits, entry.bit_width));
    case ValueKind::kReal:
      return entry.bit_width == 32 ? static_cast<double>(single_of(bits)) : double_of(bits);
    default:
      return static_cast<double>(bits);
  }
}

std::string format_value(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents) {
  const ValueKind kind = value_kind(entry);
  if (kind == ValueKind::kText) return quote_text(value.text);
  if (kind == ValueKind::kRaw) return value.text.empty() ? "(no bytes)" : hexadecimal_bytes(value.text);
  std::string text;
  size_t next = 0;
  append_list(entry, value, extents, 0, next, text);
  return text;
}

nlohmann::ordered_json value_json(const TagEntry& entry, const TagValue& value, const std::vector<size_t>& extents,
                                  WideIntegers wide) {
  const ValueKind kind = value_kind(entry);
  if (kind == ValueKind::kRaw && value.text.empty()) return nullptr;
  if (kind == ValueKind::kRaw) return hexadecimal_bytes(value.text);
  if (kind == ValueKind::kText && !plc_base::is_utf8(value.text)) return nullptr;
  if (kind == ValueKind::kText) return value.text;
  size_t next = 0;
  return nested_json(entry, value, extents, wide, 0, next);
}

std::string quote_text(std::string_view text) { return plc_base::quoted_with_escapes(text); }

}  // namespace plc_client::core
