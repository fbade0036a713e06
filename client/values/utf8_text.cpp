// UTF-8 sequences and their width in a terminal.
#include "client/values/utf8_text.h"

#include <cstdint>

namespace plc_host {
namespace {

struct Character {
  size_t bytes;  // 0: not well-formed
  uint32_t code;
};

// Bytes of the sequence that a byte begins; 0 when none begins with it.
size_t sequence_bytes(unsigned char lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  return lead < 0xF5 ? 4 : 0;
}

// Neither longer than needed, nor half of a surrogate pair, nor beyond the last code point.
bool is_well_formed(uint32_t code, size_t bytes) {
  static constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (code < kSmallest[bytes] || code > 0x10FFFF) return false;
  return code < 0xD800 || code > 0xDFFF;
}

Character first_character(std::string_view text) {
  const size_t bytes = text.empty() ? 0 : sequence_bytes(static_cast<unsigned char>(text[0]));
  if (bytes == 0 || text.size() < bytes) return {0, 0};
  const auto lead = static_cast<unsigned char>(text[0]);
  uint32_t code = bytes == 1 ? lead : lead & (0x7FU >> bytes);
  for (size_t i = 1; i < bytes; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xC0U) != 0x80U) return {0, 0};
    code = code << 6 | (next & 0x3FU);
  }
  return is_well_formed(code, bytes) ? Character{bytes, code} : Character{0, 0};
}

bool is_wide(uint32_t code) {
  return (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
         (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
         (code >= 0xFE30 && code <= 0xFE6F) || (code >= 0xFF00 && code <= 0xFF60) ||
         (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x1F300 && code <= 0x1F9FF) ||
         (code >= 0x20000 && code <= 0x3FFFD);
}

}  // namespace

size_t utf8_length(std::string_view text) { return first_character(text).bytes; }

bool is_utf8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = utf8_length(text.substr(at));
    if (length == 0) return false;
    at += length;
  }
  return true;
}

size_t display_width(std::string_view text) {
  size_t columns = 0;
  for (size_t at = 0; at < text.size();) {
    const Character character = first_character(text.substr(at));
    columns += is_wide(character.code) ? size_t{2} : size_t{1};
    at += character.bytes == 0 ? 1 : character.bytes;
  }
  return columns;
}

std::string fit_columns(std::string_view text, size_t columns) {
  if (display_width(text) <= columns) return std::string(text);
  if (columns == 0) return {};
  std::string fitted;
  size_t used = 1;  // the sign that something was cut
  for (size_t at = 0; at < text.size();) {
    const Character character = first_character(text.substr(at));
    const size_t width = is_wide(character.code) ? 2 : 1;
    if (used + width > columns) break;
    const size_t bytes = character.bytes == 0 ? 1 : character.bytes;
    fitted += text.substr(at, bytes);
    used += width;
    at += bytes;
  }
  return fitted + "\xE2\x80\xA6";
}

std::string pad_columns(std::string_view text, size_t columns) {
  const size_t width = display_width(text);
  return std::string(text) + std::string(width < columns ? columns - width : 0, ' ');
}

}  // namespace plc_host
