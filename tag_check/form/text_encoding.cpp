// Finds out a text's character set by its mark or by the zero bytes of ASCII in UTF-16.
#include "form/text_encoding.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace tag_check {
namespace {

constexpr std::string_view kMark8 = "\xEF\xBB\xBF";

bool starts_with(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

// Separators, digits and types are ASCII: in UTF-16 every second byte of most of the text is zero, on one side alone.
Encoding guessed_encoding(std::string_view bytes) {
  constexpr size_t kLooked = 4096;
  constexpr size_t kLeastUnits = 4;
  const size_t units = std::min(bytes.size(), kLooked) / 2;
  size_t zeros[2] = {0, 0};
  for (size_t at = 0; at < units * 2; ++at) zeros[at % 2] += bytes[at] == '\0' ? size_t{1} : 0;
  if (units < kLeastUnits) return Encoding::kUtf8;
  if (zeros[0] == 0 && zeros[1] > units / 4) return Encoding::kUtf16Little;
  if (zeros[1] == 0 && zeros[0] > units / 4) return Encoding::kUtf16Big;
  return Encoding::kUtf8;
}

void append_utf8(uint32_t value, std::string* text) {
  const auto tail = [&](unsigned shift) { *text += static_cast<char>(0x80U | ((value >> shift) & 0x3FU)); };
  if (value < 0x80) {
    *text += static_cast<char>(value);
  } else if (value < 0x800) {
    *text += static_cast<char>(0xC0U | (value >> 6U));
    tail(0);
  } else if (value < 0x10000) {
    *text += static_cast<char>(0xE0U | (value >> 12U));
    tail(6);
    tail(0);
  } else {
    *text += static_cast<char>(0xF0U | (value >> 18U));
    tail(12);
    tail(6);
    tail(0);
  }
}

uint32_t unit_at(std::string_view bytes, size_t at, Encoding encoding) {
  const auto first = static_cast<uint8_t>(bytes[at]);
  const auto second = static_cast<uint8_t>(bytes[at + 1]);
  return encoding == Encoding::kUtf16Little ? first | uint32_t{second} << 8U : uint32_t{first} << 8U | second;
}

// Stops at the first half of a surrogate pair that stands alone; false then, and for half a unit at the end.
bool convert(std::string_view bytes, Encoding encoding, std::string* text) {
  for (size_t at = 0; at + 2 <= bytes.size(); at += 2) {
    uint32_t value = unit_at(bytes, at, encoding);
    if (value >= 0xD800 && value < 0xE000) {
      const uint32_t low = at + 4 <= bytes.size() ? unit_at(bytes, at + 2, encoding) : 0;
      if (value >= 0xDC00 || low < 0xDC00 || low >= 0xE000) return false;
      value = 0x10000 + ((value - 0xD800) << 10U) + (low - 0xDC00);
      at += 2;
    }
    append_utf8(value, text);
  }
  return bytes.size() % 2 == 0;
}

}  // namespace

DecodedText decode_text(std::string_view bytes) {
  DecodedText decoded;
  size_t mark = 0;
  if (starts_with(bytes, "\xFF\xFE") || starts_with(bytes, "\xFE\xFF")) {
    decoded.encoding = bytes[0] == '\xFF' ? Encoding::kUtf16Little : Encoding::kUtf16Big;
    mark = 2;
  } else {
    while (starts_with(bytes.substr(mark), kMark8)) mark += kMark8.size();
    if (mark == 0) decoded.encoding = guessed_encoding(bytes);
  }
  decoded.has_mark = mark > 0;
  decoded.bytes = bytes.substr(mark);
  if (decoded.encoding != Encoding::kUtf8) {
    decoded.is_whole = convert(decoded.bytes, decoded.encoding, &decoded.converted);
  }
  return decoded;
}

const char* encoding_name(Encoding encoding) {
  switch (encoding) {
    case Encoding::kUtf16Little:
      return "UTF-16 (little endian)";
    case Encoding::kUtf16Big:
      return "UTF-16 (big endian)";
    default:
      return "UTF-8";
  }
}

}  // namespace tag_check
