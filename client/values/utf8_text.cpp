// Characters and their width in a terminal.
#include "client/values/utf8_text.h"

#include "base/utf8.h"

namespace plc_client::core {
namespace {

struct Character {
  size_t bytes;
  char32_t code;
};

// A byte that begins no well-formed sequence is one of its own.
Character first_character(std::string_view text) {
  const auto first = plc_base::first_code_point(text);
  return first ? Character{first->bytes, first->value} : Character{1, 0};
}

bool is_wide(char32_t code) {
  return (code >= 0x1100 && code <= 0x115F) || (code >= 0x2E80 && code <= 0xA4CF) ||
         (code >= 0xAC00 && code <= 0xD7A3) || (code >= 0xF900 && code <= 0xFAFF) ||
         (code >= 0xFE30 && code <= 0xFE6F) || (code >= 0xFF00 && code <= 0xFF60) ||
         (code >= 0xFFE0 && code <= 0xFFE6) || (code >= 0x1F300 && code <= 0x1F9FF) ||
         (code >= 0x20000 && code <= 0x3FFFD);
}

}  // namespace

size_t display_width(std::string_view text) {
  size_t columns = 0;
  for (size_t at = 0; at < text.size();) {
    const Character character = first_character(text.substr(at));
    columns += is_wide(character.code) ? size_t{2} : size_t{1};
    at += character.bytes;
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
    fitted += text.substr(at, character.bytes);
    used += width;
    at += character.bytes;
  }
  return fitted + "\xE2\x80\xA6";
}

std::string pad_columns(std::string_view text, size_t columns) {
  const size_t width = display_width(text);
  return std::string(text) + std::string(width < columns ? columns - width : 0, ' ');
}

}  // namespace plc_client::core
