// Checks of the lines' numbers: what is no record and counts as one, and the ids that say which number was meant.
#include <algorithm>
#include <cctype>
#include <unordered_map>

#include "base/text.h"
#include "checker.h"
#include "plc_driver/tags/tag_file.h"
#include "type_names.h"

namespace tag_check {
namespace {

using plc_base::grouped_number;

bool is_number(std::string_view text) {
  return !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) != 0;
}

bool is_of_separators(std::string_view text) { return text.find_first_not_of(", \t\r") == std::string_view::npos; }

// A heading has neither a type nor an id; the first lines alone are looked at.
bool is_heading_row(const SourceLine& line) {
  if (!line.name_closed || is_number(line.trimmed(8)) || trim(line.column(2).text).empty()) {
    // A title, or what tells a spreadsheet the separator, stands in one column.
    const bool has_title = line.column(2).present && line.fields > 1 && !trim(line.column(1).text).empty();
    return has_title && line.name_closed && is_of_separators(line.text.substr(line.column(1).text.size()));
  }
  const std::string_view type = line.column(2).text;
  if (is_type(type) || declared_type(type)) return false;
  return !meant_type(type).is_known;
}

constexpr uint32_t kMostLeading = 5;

// A title in one column: the first line behind it with more than one is the heading, or the record of the first id.
bool is_title(const SourceLine* line, const SourceLine* end) {
  if (line->fields != 1 || line->record >= kMostLeading) return false;
  const auto* const next = std::find_if(line + 1, end, [](const SourceLine& other) { return other.fields > 1; });
  if (next == end || next->indexed || next->record > kMostLeading) return false;
  return is_heading_row(*next) || next->trimmed(8) == "0";
}

// The id that a plain line states; -1 where it has none.
int64_t stated_id(const SourceLine& line) {
  int64_t id = -1;
  if (line.kind != LineKind::kRecord || !parse_number(line.trimmed(8), &id) || id < 0) return -1;
  return id;
}

// Whether the ids are the numbers that the records have without the lines that are none: these can go then.
bool fit_without(const SourceFile& file) {
  uint32_t before = 0;
  bool is_shown = false;
  for (const SourceLine& line : file.lines) {
    if (line.indexed) continue;
    if (line.kind == LineKind::kEmpty || line.kind == LineKind::kHeading) {
      ++before;
      continue;
    }
    const int64_t id = stated_id(line);
    if (id < 0) continue;
    if (id != line.record - before) return false;
    is_shown = is_shown || before > 0;
  }
  return is_shown;
}

size_t line_bytes(const SourceLine& line) { return line.text.size() + 1; }

// Lines of one kind from this one on become one finding, with their removal where it is safe.
size_t add_block(const SourceFile& file, size_t first, bool is_safe, Findings* findings) {
  const LineKind kind = file.lines[first].kind;
  size_t last = first;
  while (last + 1 < file.lines.size() && file.lines[last + 1].kind == kind &&
         file.lines[last + 1].number == file.lines[last].number + 1) {
    ++last;
  }
  const SourceLine& start = file.lines[first];
  const SourceLine& end = file.lines[last];
  const bool is_heading_block = kind == LineKind::kHeading;
  const std::string one = is_heading_block ? "a heading line" : "an empty line";
  const std::string many = grouped_number(last - first + 1) + (is_heading_block ? " heading" : " empty") + " lines";
  const std::string message =
      last == first ? one + " is record " + std::to_string(start.record)
                    : many + " are records " + std::to_string(start.record) + " to " + std::to_string(end.record);
  Finding finding{is_heading_block ? "T043" : "T005", start.number, 1, message, {}};
  if (last > first) finding.last_line = end.number;
  const size_t from = start.offset;
  const size_t to = end.offset + line_bytes(end);
  // Behind the last record an empty line holds no number that anything has.
  const bool is_at_end = !is_heading_block && first > 0 && to == file.text.size();
  if (is_safe || is_at_end) finding.edits = {{from, to - from, ""}};
  findings->push_back(std::move(finding));
  return last;
}

void check_blocks(const SourceFile& file, bool is_safe, Findings* findings) {
  for (size_t at = 0; at < file.lines.size(); ++at) {
    const LineKind kind = file.lines[at].kind;
    if (kind == LineKind::kEmpty || kind == LineKind::kHeading) at = add_block(file, at, is_safe, findings);
  }
}

// Lines whose ids differ from their records by the same number have one cause.
struct IdRun {
  const SourceLine* first = nullptr;
  const SourceLine* last = nullptr;
  int64_t difference = 0;
  size_t lines = 0;
  uint32_t same_id = 0;  // the line before it that has the first one's id; 0 for none
};

void tell_run(const IdRun& run, Findings* findings) {
  if (run.lines == 0 || run.difference == 0) return;
  const std::string id = std::to_string(run.first->record + run.difference);
  const std::string record = "the line is record " + std::to_string(run.first->record);
  const bool is_double = run.same_id > 0;
  std::string message = record + ", not " + id;
  if (is_double) message = "line " + std::to_string(run.same_id) + " has the same id " + id + "; " + record;
  if (run.lines > 1) {
    message += "; the ids of " + grouped_number(run.lines - 1) + (run.lines == 2 ? " line" : " lines") +
               " behind it are " + std::to_string(std::abs(run.difference)) +
               (run.difference > 0 ? " too large" : " too small") + " as well";
  }
  Finding& finding = add_finding(is_double ? "T109" : "T064", *run.first, run.first->column(8), message, findings);
  if (run.lines > 1) finding.last_line = run.last->number;
}

void check_differences(const SourceFile& file, Findings* findings) {
  IdRun run;
  std::unordered_map<int64_t, uint32_t> lines;
  for (const SourceLine& line : file.lines) {
    if (line.indexed) continue;
    const int64_t id = stated_id(line);
    if (id < 0 || id >= plc::kFirstIndexedId) continue;
    const int64_t difference = id - line.record;
    if (run.lines == 0 || difference != run.difference) {
      tell_run(run, findings);
      const auto same = lines.find(id);
      run = {&line, &line, difference, 0, same == lines.end() ? 0 : same->second};
    }
    lines.emplace(id, line.number);
    run.last = &line;
    ++run.lines;
  }
  tell_run(run, findings);
}

// The driver compares the id of a plain record in one place only: its number can stand there.
void check_empty_ids(const SourceFile& file, bool is_safe, bool has_blocks, Findings* findings) {
  uint32_t before = 0;
  for (const SourceLine& line : file.lines) {
    if (line.indexed) continue;
    if (line.kind == LineKind::kEmpty || line.kind == LineKind::kHeading) ++before;
    if (line.kind != LineKind::kRecord || !line.column(8).present || !line.trimmed(8).empty()) continue;
    Finding& finding = add_finding("T068", line, line.column(8), "the line has no id in column 8", findings);
    const uint32_t number = line.record - (is_safe ? before : 0);
    if ((has_blocks && !is_safe) || number >= plc::kFirstIndexedId) continue;
    finding.edits = {{line.column(8).offset, line.column(8).text.size(), std::to_string(number)}};
  }
}

LineKind kind_of(const FileForm& form, const SourceLine& line, const SourceLine* end, uint32_t leading) {
  if (form.is_left(line.number)) return LineKind::kUnknown;
  if (is_of_separators(line.text)) return LineKind::kEmpty;
  // Brackets are a variable's; the commas within them may have put its id elsewhere.
  const bool has_brackets = line.column(1).text.find_first_of("[]") != std::string_view::npos;
  const bool may_be_heading = !has_brackets && !line.indexed && leading < kMostLeading && line.record == leading;
  if (may_be_heading && (is_heading_row(line) || is_title(&line, end))) return LineKind::kHeading;
  return shift_of(line) == Shift::kNone ? LineKind::kRecord : LineKind::kShifted;
}

}  // namespace

void mark_kinds(const FileForm& form, SourceFile* file) {
  uint32_t leading = 0;  // records before the first variable's
  auto dropped = file->dropped.begin();
  for (SourceLine& line : file->lines) {
    while (dropped != file->dropped.end() && dropped->offset + dropped->length < line.offset) ++dropped;
    const bool is_rest = dropped != file->dropped.end() && dropped->reason == DroppedPiece::Reason::kTooLong &&
                         dropped->offset + dropped->length == line.offset;
    const SourceLine* const end = file->lines.data() + file->lines.size();
    line.kind = is_rest ? LineKind::kRest : kind_of(form, line, end, leading);
    if (line.kind == LineKind::kShifted) line.shift = shift_of(line);
    const bool is_none = line.kind == LineKind::kEmpty || line.kind == LineKind::kHeading;
    leading += is_none && line.record == leading ? 1 : 0;
  }
}

void check_numbers(const SourceFile& file, Findings* findings) {
  const bool is_safe = fit_without(file);
  const size_t before = findings->size();
  check_blocks(file, is_safe, findings);
  const bool has_blocks = findings->size() != before;
  if (!is_safe) check_differences(file, findings);
  check_empty_ids(file, is_safe, has_blocks, findings);
}

}  // namespace tag_check
