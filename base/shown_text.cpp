// Walks over text a character at a time, and copies most of it.
#include "base/shown_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>

#include "base/text.h"
#include "base/utf8.h"

namespace plc_base {
namespace {

struct Range {
  char32_t first;
  char32_t last;
};

// By their first character.
constexpr Range kHidden[] = {
    {0x0000, 0x001F},    // controls
    {0x007F, 0x009F},    // delete, and the controls of 8 bits
    {0x00AD, 0x00AD},    // soft hyphen
    {0x034F, 0x034F},    // joiner of combining signs
    {0x061C, 0x061C},    // sign of direction
    {0x115F, 0x1160},    // fillers
    {0x17B4, 0x17B5},    // vowels that are not drawn
    {0x180B, 0x180F},    // variants of Mongolian letters
    {0x200B, 0x200F},    // no width; signs of direction
    {0x2028, 0x202E},    // ends of lines and paragraphs; direction
    {0x2060, 0x206F},    // no width; direction
    {0x3164, 0x3164},    // filler
    {0xFDD0, 0xFDEF},    // no characters
    {0xFE00, 0xFE0F},    // variants
    {0xFEFF, 0xFEFF},    // byte order mark
    {0xFFA0, 0xFFA0},    // filler
    {0xFFF0, 0xFFFB},    // not drawn
    {0x1BCA0, 0x1BCA3},  // of shorthand
    {0x1D173, 0x1D17A},  // of notes
    {0xE0000, 0xE0FFF},  // tags, variants
};

bool is_no_character(char32_t value) { return (value & 0xFFFEU) == 0xFFFEU; }

std::string digits(uint32_t value, int least) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%0*x", least, value);
  return text.data();
}

std::string byte_text(uint8_t byte) { return "\\x" + digits(byte, 2); }

std::string escape_for_line(char32_t value) {
  switch (value) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return value < 0x80 ? byte_text(static_cast<uint8_t>(value))
                          : "\\u{" + digits(static_cast<uint32_t>(value), 1) + "}";
  }
}

std::string escape_for_json(char32_t value) {
  const auto number = static_cast<uint32_t>(value);
  if (number < 0x10000) return "\\u" + digits(number, 4);
  const uint32_t beyond = number - 0x10000;
  return "\\u" + digits(0xD800U + (beyond >> 10U), 4) + "\\u" + digits(0xDC00U + (beyond & 0x3FFU), 4);
}

bool is_printed_ascii(char byte) { return byte >= ' ' && byte <= '~'; }

// text with other words for what is hidden and for bytes that are no UTF-8.
template <typename Escape, typename ByteEscape>
std::string with_escapes(std::string_view text, bool keeps_line_feeds, const Escape& escape,
                         const ByteEscape& byte_escape) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const size_t plain =
        static_cast<size_t>(std::find_if_not(text.begin(), text.end(), is_printed_ascii) - text.begin());
    shown += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    const auto first = first_code_point(text);
    const size_t bytes = first ? first->bytes : 1;
    if (!first) {
      shown += byte_escape(static_cast<uint8_t>(text.front()));
    } else if (is_hidden(first->value) && !(keeps_line_feeds && first->value == '\n')) {
      shown += escape(first->value);
    } else {
      shown += text.substr(0, bytes);
    }
    text.remove_prefix(bytes);
  }
  return shown;
}

std::string shown(std::string_view text, bool keeps_line_feeds) {
  return with_escapes(text, keeps_line_feeds, escape_for_line, byte_text);
}

// The signs that a formula begins with, in their full width and their small form too.
bool begins_formula(char32_t value) {
  constexpr std::u32string_view kSigns = U"=+-@\uFF1D\uFF0B\uFF0D\uFF20\uFE66\uFE62\uFE63\uFE6B\u2212";
  return kSigns.find(value) != std::u32string_view::npos;
}

// What spreadsheets look past at a cell's beginning: blanks, and quotes that they take for their own.
bool is_looked_past(char32_t value) {
  constexpr std::u32string_view kPassed = U" \u00A0\u1680\u202F\u205F\u3000\"'\u2018\u2019\u201C\u201D\uFF02\uFF07";
  return kPassed.find(value) != std::u32string_view::npos || (value >= 0x2000 && value <= 0x200A);
}

}  // namespace

bool is_formula(std::string_view text) {
  while (const auto first = first_code_point(text)) {
    if (begins_formula(first->value)) return true;
    if (!is_looked_past(first->value)) return false;
    text.remove_prefix(first->bytes);
  }
  return false;
}

namespace {

// Where lists are separated by semicolons, a spreadsheet begins a cell behind each, whatever the quotes around a comma.
std::string without_formulas(std::string_view text) {
  std::string defused;
  while (true) {
    if (is_formula(text)) defused += '\'';
    const size_t end = text.find(';');
    defused += text.substr(0, end == std::string_view::npos ? end : end + 1);
    if (end == std::string_view::npos) return defused;
    text.remove_prefix(end + 1);
  }
}

}  // namespace

bool is_hidden(char32_t value) {
  if (value >= ' ' && value <= '~') return false;  // nearly all that is asked for
  const auto* const behind = std::upper_bound(std::begin(kHidden), std::end(kHidden), value,
                                              [](char32_t wanted, const Range& range) { return wanted < range.first; });
  return (behind != std::begin(kHidden) && value <= std::prev(behind)->last) || is_no_character(value);
}

std::string shown_line(std::string_view text) { return shown(text, false); }

std::string first_hidden(std::string_view text) {
  while (const std::optional<CodePoint> first = first_code_point(text)) {
    if (is_hidden(first->value)) return shown_line(text.substr(0, first->bytes));
    text.remove_prefix(first->bytes);
  }
  return {};
}

std::string shown_first(std::string_view text) {
  std::string first = shown_line(text);
  const bool speaks = first.find(": ") != std::string::npos || (!first.empty() && first.back() == ':');
  return speaks || hides_blanks(text) ? '"' + first + '"' : first;
}

std::string shown_lines(std::string_view text) { return shown(text, true); }

std::string shown_json(std::string_view json) {
  return with_escapes(json, true, escape_for_json, [](uint8_t) { return std::string("\\ufffd"); });
}

std::string shown_html(std::string_view text) {
  std::string html;
  for (const char sign : shown_line(text)) {
    switch (sign) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += sign;
    }
  }
  return html;
}

std::string shown_csv_cell(std::string_view text) {
  std::string cell = without_formulas(shown_line(text));
  if (cell.find_first_of(",\"") == std::string::npos) return cell;
  std::string quoted = "\"";
  for (const char byte : cell) quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  return quoted + "\"";
}

}  // namespace plc_base
