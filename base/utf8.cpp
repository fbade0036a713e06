// The strict decoder of UTF-8.
#include "base/utf8.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace plc_base {
namespace {

constexpr size_t kMostBytesOfCharacter = 4;

// Bytes of the sequence that a byte begins; 0 when none begins with it.
size_t announced_bytes(uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

bool is_well_formed(char32_t value, size_t bytes) {
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  return value >= kSmallest[bytes] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

// The blanks beyond a space, a tab and a carriage return: those of word processors and of wide scripts; those without
// width.
constexpr std::string_view kWideBlanks[] = {"\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004",
                                            "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A", "\u200B",
                                            "\u202F", "\u205F", "\u2060", "\u3000", "\uFEFF"};

// Nearly every character is of one byte: no list is gone through for it.
bool is_ascii(char byte) { return static_cast<uint8_t>(byte) < 0x80; }
size_t ascii_blank(char byte) { return byte == ' ' || byte == '\t' || byte == '\r' ? 1 : 0; }

// Bytes of the blank at an end of text; 0 when there is none.
size_t blank_at_start(std::string_view text) {
  if (text.empty()) return 0;
  if (is_ascii(text.front())) return ascii_blank(text.front());
  for (const std::string_view blank : kWideBlanks) {
    if (text.substr(0, blank.size()) == blank) return blank.size();
  }
  return 0;
}

size_t blank_at_end(std::string_view text) {
  if (text.empty()) return 0;
  if (is_ascii(text.back())) return ascii_blank(text.back());
  for (const std::string_view blank : kWideBlanks) {
    if (text.size() >= blank.size() && text.substr(text.size() - blank.size()) == blank) return blank.size();
  }
  return 0;
}

}  // namespace

std::optional<CodePoint> first_code_point(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto lead = static_cast<uint8_t>(text.front());
  const size_t bytes = announced_bytes(lead);
  if (bytes == 0 || text.size() < bytes) return std::nullopt;
  char32_t value = bytes == 1 ? lead : lead & (0x7FU >> bytes);
  for (size_t i = 1; i < bytes; ++i) {
    const auto next = static_cast<uint8_t>(text[i]);
    if ((next & 0xC0U) != 0x80U) return std::nullopt;
    value = (value << 6U) | (next & 0x3FU);
  }
  if (!is_well_formed(value, bytes)) return std::nullopt;
  return CodePoint{value, bytes};
}

std::string_view whole_characters(std::string_view text, size_t most_bytes) {
  if (text.size() <= most_bytes) return text;
  for (size_t back = 1; back < kMostBytesOfCharacter && back <= most_bytes; ++back) {
    const auto last = first_code_point(text.substr(most_bytes - back));
    if (last && last->bytes > back) return text.substr(0, most_bytes - back);
  }
  return text.substr(0, most_bytes);
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const auto first = first_code_point(text);
    if (!first) return false;
    text.remove_prefix(first->bytes);
  }
  return true;
}

bool is_unusual_blank(std::string_view character) {
  return std::find(std::begin(kWideBlanks), std::end(kWideBlanks), character) != std::end(kWideBlanks);
}

std::string_view without_blanks(std::string_view text) {
  while (const size_t bytes = blank_at_start(text)) text.remove_prefix(bytes);
  while (const size_t bytes = blank_at_end(text)) text.remove_suffix(bytes);
  return text;
}

}  // namespace plc_base
