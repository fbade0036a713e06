// Reads TOML, and on behind a line that is the only one at fault.
#include "base/toml/toml_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <string_view>

#include "base/text.h"
#include "base/utf8.h"

namespace plc_toml {
namespace {

constexpr size_t kMostKeyParts = 16;     // each part is a table in a table, and those are freed by recursion
constexpr size_t kMostFaultyLines = 20;  // each costs two more readings of the text

// Where a string, or a comment, ends, and whether it has all of its quotes.
struct StringEnd {
  size_t behind;
  bool is_closed;
};

// Of a string of one line, behind its closing quote; or its line's end.
StringEnd end_of_short_string(std::string_view text, size_t at) {
  const char quote = text[at];
  for (size_t i = at + 1; i < text.size(); ++i) {
    if (text[i] == quote || text[i] == '\n') return {i + 1, text[i] == quote};
    const bool is_escape = text[i] == '\\' && quote == '"';
    if (is_escape && i + 1 < text.size() && text[i + 1] != '\n') ++i;
  }
  return {text.size(), false};
}

// The same of a string that begins with three quotes and may have several lines.
StringEnd end_of_long_string(std::string_view text, size_t at) {
  const std::string_view quotes = text.substr(at, 3);
  for (size_t i = at + 3; i < text.size(); ++i) {
    if (text.substr(i, 3) == quotes) return {i + 3, true};
    if (text[i] == '\\' && quotes.front() == '"') ++i;
  }
  return {text.size(), false};
}

bool is_long_string(std::string_view text, size_t at) {
  const std::string_view quotes = text.substr(at, 3);
  return quotes == "\"\"\"" || quotes == "'''";
}

// Behind the string or the comment that begins there; `at` where none does.
StringEnd end_of_what_is_no_key(std::string_view text, size_t at) {
  const char sign = text[at];
  if (sign == '#') return {std::min(text.find('\n', at), text.size()), true};
  if (sign != '"' && sign != '\'') return {at, true};
  return is_long_string(text, at) ? end_of_long_string(text, at) : end_of_short_string(text, at);
}

// Where a key of too many parts reaches the last of them; nothing when there is none.
std::optional<size_t> end_of_long_key(std::string_view text) {
  size_t dots = 0;
  for (size_t i = 0; i < text.size();) {
    const size_t behind = end_of_what_is_no_key(text, i).behind;
    if (behind != i) {
      i = behind;
      continue;
    }
    const char sign = text[i];
    if (std::string_view("\n=,[]{}").find(sign) != std::string_view::npos) dots = 0;
    if (sign == '.' && ++dots == kMostKeyParts) return i;
    ++i;
  }
  return std::nullopt;
}

struct Line {
  size_t start = 0;
  size_t length = 0;  // without its end
};

Line find_line(const std::string& text, uint32_t number) {
  Line line;
  for (uint32_t i = 1; i < number; ++i) {
    const size_t end = text.find('\n', line.start);
    line.start = end == std::string::npos ? text.size() : end + 1;
  }
  line.length = std::min(text.find('\n', line.start), text.size()) - line.start;
  return line;
}

bool is_toml(std::string_view text) {
  try {
    const toml::table parsed = toml::parse(text);
    return true;
  } catch (const toml::parse_error&) {
    return false;
  }
}

std::string trimmed(std::string_view text) {
  const size_t start = text.find_first_not_of(" \t\r");
  if (start == std::string_view::npos) return {};
  return std::string(text.substr(start, text.find_last_not_of(" \t\r") - start + 1));
}

// What the library says, without its beginning.
std::string said_by(const toml::parse_error& error) {
  constexpr std::string_view kStart = "Error while parsing ";
  const std::string_view said = error.description();
  return std::string(said.substr(said.substr(0, kStart.size()) == kStart ? kStart.size() : 0));
}

// What is wrong with a line of which the text above can be read.
std::string fault_of(const std::string& line, const std::string& description) {
  if (!is_toml(line)) {
    return "this is no TOML (" + description +
           "): texts stand in double quotes, lists in brackets with commas, and yes and no are true and false";
  }
  if (line.front() == '[') {
    return line + " is there already: put the two together; where there may be several, double brackets begin each";
  }
  return plc_base::quoted(trimmed(line.substr(0, line.find('=')))) + " is set a second time: keep one of them";
}

// Whether any line may set a key or begin a table: other files have as many faults as lines.
bool may_be_toml(std::string_view text) {
  return text.find('=') != std::string_view::npos || text.substr(0, 1) == "[" ||
         text.find("\n[") != std::string_view::npos;
}

// What is wrong where no single line can be left out.
std::string fault_of_all(std::string_view text, const std::string& description) {
  if (!may_be_toml(text)) return "this is no TOML: no line sets a key, as in name = \"value\"";
  return "this is no TOML (" + description + "): correct it here, or above";
}

// Where the first string without its closing quotes begins; nothing where all have theirs.
std::optional<size_t> find_open_string(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    const StringEnd end = end_of_what_is_no_key(text, i);
    if (!end.is_closed) return i;
    i = std::max(end.behind, i + 1);
  }
  return std::nullopt;
}

// Columns are counted in characters.
Place place_at(std::string_view text, size_t at) {
  const std::string_view before = text.substr(0, at);
  const size_t line = before.rfind('\n') + 1;  // npos + 1 is 0
  const auto is_first_byte = [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; };
  const auto lines = std::count(before.begin(), before.end(), '\n');
  const auto columns = std::count_if(before.begin() + static_cast<std::ptrdiff_t>(line), before.end(), is_first_byte);
  return {static_cast<uint32_t>(lines) + 1, static_cast<uint32_t>(columns) + 1};
}

// Tells of a string without its end where the parser met it. It stops there, or at the text's end for one that may have
// several lines.
bool told_open_string(const std::string& text, Place met, Findings& findings) {
  const std::optional<size_t> at = find_open_string(text);
  if (!at) return false;
  const Place begin = place_at(text, *at);
  const bool is_long = is_long_string(text, *at);
  const bool is_met = is_long ? begin.line <= met.line : begin.line == met.line && begin.column <= met.column;
  if (!is_met) return false;
  const std::string quotes = text.substr(*at, is_long ? 3 : 1);
  const std::string line = trimmed(std::string_view(text).substr(*at, text.find('\n', *at) - *at));
  const bool is_escaped = quotes == "\"" && line.size() > 2 && line.substr(line.size() - 2) == "\\\"";
  findings.error(begin, "the text that begins here lacks its closing " + quotes +
                            (is_escaped ? ": behind a \\ a quote is a part of the text; write \\\\ or / in paths"
                                        : ": write it at the end of the text"));
  return true;
}

}  // namespace

std::string number_text(double number) {
  std::array<char, 32> text{};
  const std::to_chars_result end = std::to_chars(text.data(), text.data() + text.size(), number);
  return {text.data(), end.ptr};
}

std::string form_of(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return "the text \"" + **node.as_string() + "\"";
    case toml::node_type::integer:
      return "the integer " + std::to_string(**node.as_integer());
    case toml::node_type::floating_point:
      return "the number " + number_text(**node.as_floating_point());
    case toml::node_type::boolean:
      return **node.as_boolean() ? "true" : "false";
    case toml::node_type::array:
      return node.as_array()->is_array_of_tables() ? "several sections" : "a list";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

Place place_of(const toml::source_region& source) { return {source.begin.line, source.begin.column}; }

namespace {

// What the parser is not given.
bool is_refused(const std::string& text, Findings& findings) {
  if (!plc_base::is_utf8(text)) {
    findings.error({}, "the file is not UTF-8: save it as UTF-8");
    return true;
  }
  const std::optional<size_t> end = end_of_long_key(text);
  if (!end) return false;
  const auto lines = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(*end), '\n');
  findings.error({static_cast<uint32_t>(lines) + 1, 1},
                 "the key has more than " + std::to_string(kMostKeyParts) + " parts: it is none of these");
  return true;
}

void tell_fault(const std::string& text, const std::string& rest, Place place, const std::string& fault,
                Findings& findings) {
  if (may_be_toml(text) && told_open_string(rest, place, findings)) return;
  findings.error(place, fault);
}

}  // namespace

TomlText parse_toml(const std::string& text, Findings& findings) {
  TomlText result;
  result.is_whole = false;
  if (is_refused(text, findings)) return result;
  std::string rest = text;
  for (size_t faults = 0;; ++faults) {
    try {
      result.table = toml::parse(std::string_view(rest));
      result.is_whole = faults == 0;
      return result;
    } catch (const toml::parse_error& error) {
      const Place place = place_of(error.source());
      const Line at = find_line(rest, place.line);
      const std::string line = trimmed(std::string_view(rest).substr(at.start, at.length));
      const bool is_alone = may_be_toml(text) && !line.empty() && is_toml(std::string_view(rest).substr(0, at.start));
      const std::string description = said_by(error);
      tell_fault(text, rest, place, is_alone ? fault_of(line, description) : fault_of_all(text, description), findings);
      // Keys behind a head that cannot be read would be taken for those of the head before it.
      if (!is_alone || line.front() == '[' || faults + 1 == kMostFaultyLines) return result;
      rest.replace(at.start, at.length, at.length, ' ');
    }
  }
}

}  // namespace plc_toml
