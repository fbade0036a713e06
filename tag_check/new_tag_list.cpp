// Reads a list of names and types: which lines and columns of it mean what.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <iterator>
#include <map>
#include <optional>

#include "base/files.h"
#include "base/near_names.h"
#include "base/text.h"
#include "form/csv_line.h"
#include "form/text_encoding.h"
#include "new_tags.h"
#include "type_names.h"

namespace tag_check {
namespace {

enum Meaning { kName, kType, kRanges, kLength, kScope, kDevice, kMeanings };

struct HeadingWord {
  const char* word;
  Meaning meaning;
};

constexpr HeadingWord kHeadingWords[] = {
    {"name", kName},     {"tag", kName},           {"tag name", kName},      {"variable", kName},
    {"symbol", kName},   {"variable name", kName}, {"type", kType},          {"data type", kType},
    {"datatype", kType}, {"ranges", kRanges},      {"range", kRanges},       {"dimensions", kRanges},
    {"array", kRanges},  {"length", kLength},      {"size", kLength},        {"scope", kScope},
    {"program", kScope}, {"device", kDevice},      {"program name", kScope},
};

// Where in a line each field stands; nothing for a field that the list has not.
using Columns = std::array<std::optional<size_t>, kMeanings>;

struct ListLine {
  std::string_view text;
  uint32_t number;
};

std::vector<ListLine> lines_of(std::string_view text) {
  std::vector<ListLine> lines;
  uint32_t number = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    lines.push_back({text.substr(at, end - at), ++number});
    at = end + (text.substr(end, 2) == "\r\n" ? 2 : 1);
  }
  return lines;
}

bool is_empty(std::string_view line) { return line.find_first_not_of(" \t,;|\"") == std::string_view::npos; }

// "sep=;" tells spreadsheets the separator.
bool is_separator_line(std::string_view line) { return line.size() <= 5 && line.substr(0, 4) == "sep="; }

bool says_nothing(std::string_view line) { return is_empty(line) || is_separator_line(line); }

bool has_open_quote(std::string_view text) { return std::count(text.begin(), text.end(), '"') % 2 != 0; }

// The separator of most lines. Those that a cell between quotes goes on in have it at the wrong side of them.
char separator_of_all(const std::vector<ListLine>& lines) {
  std::map<char, size_t> votes;
  for (const ListLine& line : lines) {
    if (!says_nothing(line.text) && !has_open_quote(line.text)) ++votes[separator_of(line.text)];
  }
  const auto most =
      std::max_element(votes.begin(), votes.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  return most == votes.end() ? ',' : most->first;
}

std::string lower_case(std::string_view text) {
  std::string lower(without_blanks(text));
  for (char& sign : lower) sign = static_cast<char>(std::tolower(static_cast<unsigned char>(sign)));
  return lower;
}

struct Heading {
  Columns columns;
  std::string problem;  // of two columns that say the same; empty when none do
};

std::string told_twice(const CsvLine& line, size_t first, size_t second) {
  return "columns " + std::to_string(first + 1) + " and " + std::to_string(second + 1) +
         " say the same: " + plc_base::quoted(without_blanks(line.fields[first].text)) + " and " +
         plc_base::quoted(without_blanks(line.fields[second].text));
}

// The columns that a line names by their usual words.
Heading columns_named(const CsvLine& line) {
  Heading heading;
  for (size_t i = 0; i < line.fields.size(); ++i) {
    const std::string word = lower_case(line.fields[i].text);
    const auto* const known = std::find_if(std::begin(kHeadingWords), std::end(kHeadingWords),
                                           [&word](const HeadingWord& row) { return word == row.word; });
    if (known == std::end(kHeadingWords)) continue;
    std::optional<size_t>& column = heading.columns[known->meaning];
    if (column && heading.problem.empty()) heading.problem = told_twice(line, *column, i);
    if (!column) column = i;
  }
  return heading;
}

// What a heading says; nothing for a line that is none.
std::optional<Heading> heading_of(const CsvLine& line) {
  Heading heading = columns_named(line);
  if (!heading.columns[kName] || !heading.columns[kType]) return std::nullopt;
  return heading;
}

void tell_doubles(const Heading& heading, uint32_t line, NewTagList* list) {
  if (!heading.problem.empty()) list->findings.push_back({"T044", line, 1, heading.problem, {}});
}

// The words of what no column says, as headings are written.
std::vector<std::string> missing_words(const Columns& columns) {
  std::vector<std::string> words;
  for (const HeadingWord& row : kHeadingWords) {
    if (columns[row.meaning]) continue;
    words.emplace_back(row.word);
    words.back()[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(row.word[0])));
  }
  return words;
}

// Columns whose words are nearly known: what stands in them would be left out without a word.
void tell_misspelt(const CsvLine& line, const Columns& columns, uint32_t number, NewTagList* list) {
  const std::vector<std::string> missing = missing_words(columns);
  for (size_t i = 0; i < line.fields.size(); ++i) {
    if (std::find(columns.begin(), columns.end(), std::optional<size_t>(i)) != columns.end()) continue;
    const std::string_view word = without_blanks(line.fields[i].text);
    const std::vector<std::string> near = plc_base::near_names(word, missing);
    if (near.empty()) continue;
    std::string message = "column " + std::to_string(i + 1) + " ";
    message.append(plc_base::quoted(word)).append(" is not used; did you mean ").append(near.front()).append("?");
    list->findings.push_back({"T066", number, 1, message, {}});  // one that is not used
  }
}

// Puts a name together that was split at the commas of its subscripts.
void join_name(char separator, size_t name, CsvLine* line) {
  constexpr size_t kMostSubscripts = 3;
  if (separator != ',' || name >= line->fields.size()) return;
  std::string& text = line->fields[name].text;
  const auto is_open = [&] {
    return text.rfind('[') != std::string::npos && text.find(']', text.rfind('[')) == std::string::npos;
  };
  for (size_t more = 1; more < kMostSubscripts && is_open() && name + 1 < line->fields.size(); ++more) {
    text += "," + line->fields[name + 1].text;
    line->fields.erase(line->fields.begin() + static_cast<std::ptrdiff_t>(name) + 1);
  }
}

std::string field_text(const CsvLine& line, const std::optional<size_t>& column) {
  if (!column || *column >= line.fields.size()) return "";
  return std::string(without_blanks(line.fields[*column].text));
}

// Blanks within quotes are somebody's, and are told.
std::string name_text(const CsvLine& line, const std::optional<size_t>& column) {
  const bool is_quoted = column && *column < line.fields.size() && line.fields[*column].is_quoted;
  return is_quoted ? line.fields[*column].text : field_text(line, column);
}

NewTag tag_of(const CsvLine& line, const Columns& columns, uint32_t number) {
  NewTag tag;
  tag.name = name_text(line, columns[kName]);
  tag.type = field_text(line, columns[kType]);
  tag.ranges = field_text(line, columns[kRanges]);
  tag.length = field_text(line, columns[kLength]);
  tag.scope = name_text(line, columns[kScope]);
  tag.device = field_text(line, columns[kDevice]);
  tag.place = number;
  return tag;
}

// A first line with words of its own that no line behind it shares is a heading in another language.
void take_strange_heading(NewTagList* list) {
  if (list->tags.size() < 2 || is_like_type(list->tags[0].type) || !is_like_type(list->tags[1].type)) return;
  list->findings.push_back(
      {"T041",
       list->tags[0].place,
       1,
       plc_base::quoted(list->tags[0].type) +
           " is not a type; a heading calls the columns Name, Type, Range, Length, Program and Device",
       {}});
  list->tags.erase(list->tags.begin());
}

// A first line that names the variables' column alone, and nothing behind it that could be a type.
bool is_heading_without_type(const Columns& first, const NewTagList& list) {
  return first[kName] && !first[kType] &&
         std::none_of(list.tags.begin(), list.tags.end(), [](const NewTag& tag) { return is_like_type(tag.type); });
}

// A cell between quotes may go on in the lines behind: they become one, with its line breaks.
CsvLine whole_line(const std::vector<ListLine>& lines, char separator, size_t* at) {
  constexpr size_t kMostLines = 100;
  CsvLine csv = split_csv(lines[*at].text, separator);
  if (!csv.is_broken || !has_open_quote(lines[*at].text)) return csv;
  std::string text(lines[*at].text);
  for (size_t next = *at + 1; next < std::min(lines.size(), *at + kMostLines); ++next) {
    text.append("\n").append(lines[next].text);
    if (!has_open_quote(lines[next].text)) continue;
    CsvLine joined = split_csv(text, separator);
    if (joined.is_broken) return csv;
    *at = next;
    return joined;
  }
  return csv;
}

// Reads the lines one after the other.
class ListReader {
 public:
  explicit ListReader(const std::vector<ListLine>& lines) : lines_(lines), separator_(separator_of_all(lines)) {}

  NewTagList read() {
    for (size_t at = 0; at < lines_.size(); ++at) {
      const uint32_t number = lines_[at].number;
      if (says_nothing(lines_[at].text)) continue;
      CsvLine csv = whole_line(lines_, separator_, &at);
      if (!take(csv, number)) return std::move(list_);
    }
    if (!has_heading_ && is_heading_without_type(first_words_, list_)) {
      list_ = {};
      list_.findings.push_back({"T040", first_line_, 1, "the heading has no column that is called Type", {}});
    } else if (!has_heading_) {
      take_strange_heading(&list_);
    }
    return std::move(list_);
  }

 private:
  // False when the rest need not be read.
  bool take(CsvLine& csv, uint32_t number) {
    constexpr size_t kTagFileColumns = 8;
    if (csv.is_broken) {
      list_.findings.push_back({"T009", number, 1, "a quote has no end, or text stands behind it", {}});
      return true;
    }
    if (const auto heading = heading_of(csv)) {
      take_heading(*heading, csv, number);
      return true;
    }
    if (!has_heading_ && csv.fields.size() >= kTagFileColumns) {
      list_.findings.push_back(
          {"T006", number, 1, "this is not a list of names and types: it has the columns of a tag file", {}});
      return false;
    }
    if (list_.tags.empty() && !has_heading_) {
      first_words_ = columns_named(csv).columns;
      first_line_ = number;
    }
    join_name(separator_, *columns_[kName], &csv);
    list_.tags.push_back(tag_of(csv, columns_, number));
    return true;
  }

  void take_heading(const Heading& heading, const CsvLine& csv, uint32_t number) {
    if (has_heading_ || !list_.tags.empty()) {
      list_.findings.push_back({"T006", number, 1, "a heading stands between the variables: it is the first line", {}});
      list_.findings.back().has_remedy = true;
      return;
    }
    tell_doubles(heading, number, &list_);
    columns_ = heading.columns;
    tell_misspelt(csv, columns_, number, &list_);
    has_heading_ = true;
  }

  const std::vector<ListLine>& lines_;
  char separator_;
  NewTagList list_;
  Columns columns_ = {0, 1, 2, 3, 4, 5};
  bool has_heading_ = false;
  Columns first_words_;  // what the first line would be as a heading
  uint32_t first_line_ = 0;
};

}  // namespace

NewTagList read_tag_list(std::string_view text) {
  const DecodedText decoded = decode_text(text);
  NewTagList list;
  if (plc_base::is_workbook(text)) {
    list.findings.push_back({"T016", 1, 1, "this is a spreadsheet's own file", {}});
  } else if (decoded.is_whole) {
    const std::string whole(decoded.text());
    const std::vector<ListLine> lines = lines_of(whole);
    list = ListReader(lines).read();
  } else {
    list.findings.push_back({"T007", 1, 1, "the list is UTF-16, and its characters are not whole", {}});
  }
  if (list.tags.empty() && list.findings.empty()) {
    list.findings.push_back({"T006", 1, 1, "the list names no variable", {}});
  }
  return list;
}

}  // namespace tag_check
