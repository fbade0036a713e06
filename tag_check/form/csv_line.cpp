// Takes a line of comma-separated values apart.
#include "form/csv_line.h"

#include <algorithm>
#include <iterator>

namespace tag_check {
namespace {

constexpr char kSeparators[] = {',', ';', '\t', '|'};
// A space, a tab, a carriage return; those of word processors and of wide scripts; those without width.
constexpr std::string_view kBlanks[] = {" ",      "\t",     "\r",     "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002",
                                        "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A",
                                        "\u200B", "\u202F", "\u205F", "\u2060", "\u3000", "\uFEFF"};

size_t blank_at_start(std::string_view text) {
  for (const std::string_view blank : kBlanks) {
    if (text.substr(0, blank.size()) == blank) return blank.size();
  }
  return 0;
}

size_t blank_at_end(std::string_view text) {
  for (const std::string_view blank : kBlanks) {
    if (text.size() >= blank.size() && text.substr(text.size() - blank.size()) == blank) return blank.size();
  }
  return 0;
}

// The text of a quoted field from behind its quote on; where the line goes on is left in *at. False without an end.
bool read_quoted(std::string_view line, size_t* at, std::string* text) {
  while (*at < line.size()) {
    const char sign = line[(*at)++];
    if (sign != '"') {
      *text += sign;
    } else if (*at < line.size() && line[*at] == '"') {
      *text += line[(*at)++];
    } else {
      return true;
    }
  }
  return false;
}

}  // namespace

char separator_of(std::string_view line) {
  size_t counts[std::size(kSeparators)] = {};
  bool is_quoted = false;
  bool is_subscript = false;
  for (const char sign : line) {
    if (sign == '"') is_quoted = !is_quoted;
    if (is_quoted) continue;
    if (sign == '[') is_subscript = true;
    if (sign == ']') is_subscript = false;
    const auto* const found = std::find(std::begin(kSeparators), std::end(kSeparators), sign);
    if (found == std::end(kSeparators) || (is_subscript && sign == ',')) continue;
    ++counts[found - std::begin(kSeparators)];
  }
  return kSeparators[std::max_element(std::begin(counts), std::end(counts)) - std::begin(counts)];
}

const char* separator_name(char separator) {
  switch (separator) {
    case ';':
      return "semicolons";
    case '\t':
      return "tabs";
    case '|':
      return "vertical bars";
    default:
      return "commas";
  }
}

CsvLine split_csv(std::string_view line, char separator) {
  CsvLine csv;
  for (size_t at = 0;; ++at) {
    CsvField field;
    const size_t end = line.find(separator, at);
    const std::string_view plain = line.substr(at, end == std::string_view::npos ? end : end - at);
    const std::string_view inner = without_blanks(plain);
    if (!inner.empty() && inner[0] == '"') {
      csv.has_quotes = true;
      at = static_cast<size_t>(inner.data() - line.data()) + 1;
      field.at = at;
      csv.is_broken = !read_quoted(line, &at, &field.text) || csv.is_broken;
      const size_t next = line.find(separator, at);
      const size_t rest = next == std::string_view::npos ? line.size() : next;
      csv.is_broken = csv.is_broken || !without_blanks(line.substr(at, rest - at)).empty();
      at = rest;
    } else {
      field.at = at;
      field.text = plain;
      at += plain.size();
    }
    csv.fields.push_back(std::move(field));
    if (at >= line.size()) return csv;
  }
}

bool is_unusual_blank(std::string_view character) {
  return character.size() > 1 && std::find(std::begin(kBlanks), std::end(kBlanks), character) != std::end(kBlanks);
}

std::string_view without_blanks(std::string_view text) {
  while (const size_t bytes = blank_at_start(text)) text.remove_prefix(bytes);
  while (const size_t bytes = blank_at_end(text)) text.remove_suffix(bytes);
  return text;
}

bool has_comma(std::string_view text, bool is_name) {
  bool is_subscript = false;
  for (const char sign : text) {
    if (sign == '[') is_subscript = is_name;
    if (sign == ']') is_subscript = false;
    if (sign == ',' && !is_subscript) return true;
  }
  return false;
}

}  // namespace tag_check
