// Takes a line of comma-separated values apart.
#include "form/csv_line.h"

#include <algorithm>
#include <iterator>

namespace tag_check {
namespace {

constexpr char kSeparators[] = {',', ';', '\t', '|'};

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
      field.is_quoted = true;
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

size_t name_fields(const CsvLine& csv) {
  const std::string& first = csv.fields[0].text;
  if (first.find('[') == std::string::npos || first.find(']') != std::string::npos) return 0;
  for (size_t more = 1; more <= 2 && more < csv.fields.size(); ++more) {
    if (csv.fields[more].text.find(']') != std::string::npos) return more;
  }
  return 0;
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
