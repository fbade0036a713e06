// Checks that columns are where they belong: a comma within the ranges, a column too few or too many before the id.
#include <algorithm>

#include "base/text.h"
#include "checker.h"
#include "type_names.h"

namespace tag_check {
namespace {

bool is_flag(std::string_view text) { return text == "0" || text == "1"; }

bool is_decimal(std::string_view text) {
  int64_t number = 0;
  return parse_number(text, &number);
}

bool are_empty(const SourceLine& line, uint32_t first, uint32_t last) {
  for (uint32_t number = first; number <= last; ++number) {
    if (!line.trimmed(number).empty()) return false;
  }
  return true;
}

bool states_record(const SourceLine& line, uint32_t number) {
  return line.trimmed(number) == std::to_string(line.record);
}

// "Line[1].Pos[2,3]": behind brackets that are closed, the driver does not join what commas split.
bool is_name_split(const SourceLine& line) {
  const std::string_view name = line.column(1).text;
  const size_t open = name.rfind('[');
  const size_t close = name.rfind(']');
  if (open == std::string_view::npos || close == std::string_view::npos || open < close) return false;
  for (const uint32_t number : {2U, 3U}) {
    const std::string_view text = line.column(number).text;
    const size_t bracket = text.find_first_of("[]");
    if (bracket != std::string_view::npos) return text[bracket] == ']';
  }
  return false;
}

// The last column of ranges that commas have split; 0 for ranges in one column.
uint32_t end_of_ranges(const SourceLine& line) {
  constexpr uint32_t kMostRanges = 3;
  const std::string_view first = line.trimmed(3);
  if (first.substr(0, 1) != "[" || first.find(']') != std::string_view::npos) return 0;
  for (uint32_t number = 4; number < 3 + kMostRanges; ++number) {
    const std::string_view text = line.trimmed(number);
    if (text.find('[') != std::string_view::npos) return 0;
    if (!text.empty() && text.back() == ']') return number;
  }
  return 0;
}

std::string_view split_ranges(const SourceLine& line) {
  const Column& first = line.column(3);
  const Column& last = line.column(end_of_ranges(line));
  return line.text.substr(first.offset - line.offset, last.offset + last.text.size() - first.offset);
}

// The length of a STRING in a column that is not its own hides which column is missing.
bool is_place_sure(const SourceLine& line) {
  const std::string_view ranges = line.trimmed(3);
  const std::string_view length = line.trimmed(4);
  const bool has_length = line.trimmed(2) == "STRING" && is_decimal(length);
  return (ranges.empty() || ranges.front() == '[') && (length.empty() || has_length);
}

std::vector<Edit> edits_of(const SourceLine& line) {
  const Column& split = line.column(3);
  const std::string_view text = line.shift == Shift::kRangesSplit ? split_ranges(line) : std::string_view();
  const std::string meant = ranges_of(text);
  switch (line.shift) {
    case Shift::kRangesSplit:
      if (meant == text) return {};
      return {{split.offset, text.size(), meant}};
    case Shift::kColumnMissing:
      if (!is_place_sure(line)) return {};
      return {{line.column(7).offset, 0, ","}};
    case Shift::kColumnSurplus:
      if (!is_place_sure(line)) return {};
      return {{line.column(8).offset, line.column(8).text.size() + 1, ""}};
    default:
      return {};
  }
}

std::string text_of(const SourceLine& line) {
  if (line.shift == Shift::kNameSplit) {
    return "the driver cannot read a second list of subscripts: it takes " + plc_base::quoted(line.column(1).text) +
           " for the name and " + plc_base::quoted(line.column(2).text) + " for the type";
  }
  if (line.shift == Shift::kColumnMissing) return "a column is missing before the id, which stands in column 7";
  if (line.shift == Shift::kColumnSurplus) return "there is a column too many before the id, which stands in column 9";
  const std::string_view text = split_ranges(line);
  const std::string meant = ranges_of(text);
  return "the ranges " + plc_base::quoted(text) + " contain a comma" + (meant == text ? "" : ": write " + meant);
}

const char* rule_for(Shift shift) {
  if (shift == Shift::kNameSplit) return "T077";
  return shift == Shift::kRangesSplit ? "T014" : "T069";
}

const Column& place_of(const SourceLine& line) {
  if (line.shift == Shift::kNameSplit) return line.column(1);
  if (line.shift == Shift::kRangesSplit) return line.column(3);
  return line.column(line.shift == Shift::kColumnMissing ? 7 : 9);
}

}  // namespace

Shift shift_of(const SourceLine& line) {
  if (is_name_split(line)) return Shift::kNameSplit;
  if (end_of_ranges(line) > 0) return Shift::kRangesSplit;
  if (line.indexed || !line.column(8).present || !are_empty(line, 5, 6)) return Shift::kNone;
  const bool may_be_whole = line.column(12).present && states_record(line, 8);
  if (states_record(line, 7) && is_flag(line.trimmed(8)) && !may_be_whole) return Shift::kColumnMissing;
  const bool is_surplus = are_empty(line, 7, 8) && states_record(line, 9) && is_flag(line.trimmed(10)) &&
                          is_decimal(line.trimmed(11)) && is_decimal(line.trimmed(12));
  return is_surplus ? Shift::kColumnSurplus : Shift::kNone;
}

// Lines behind each other that lost the same column have one cause.
void check_shifts(const SourceFile& file, Findings* findings) {
  for (size_t at = 0; at < file.lines.size(); ++at) {
    const SourceLine& first = file.lines[at];
    if (first.kind != LineKind::kShifted) continue;
    const bool is_split = first.shift == Shift::kRangesSplit || first.shift == Shift::kNameSplit;
    Finding& finding = add_finding(rule_for(first.shift), first, place_of(first), text_of(first), findings);
    finding.edits = edits_of(first);
    size_t lines = 1;
    while (!is_split && at + 1 < file.lines.size() && file.lines[at + 1].kind == LineKind::kShifted &&
           file.lines[at + 1].shift == first.shift) {
      const std::vector<Edit> more = edits_of(file.lines[++at]);
      finding.edits.insert(finding.edits.end(), more.begin(), more.end());
      finding.last_line = file.lines[at].number;
      ++lines;
    }
    if (lines > 1) finding.message += " (" + plc_base::grouped_number(lines) + " lines)";
  }
}

}  // namespace tag_check
