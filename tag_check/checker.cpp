// Checks a tag file: runs all checks, and loads the file as the driver does.
#include "checker.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "plc_driver/tags/tag_file.h"

namespace tag_check {

Finding& add_finding(const char* rule, const SourceLine& line, const Column& column, std::string message,
                     Findings* findings) {
  findings->push_back({rule, line.number, column.present ? column.column : 1, std::move(message), {}});
  return findings->back();
}

bool parse_number(std::string_view text, int64_t* number) {
  const std::string copy(text);
  if (copy.empty() || copy.size() > 12) return false;
  const size_t digits = copy[0] == '-' ? 1 : 0;
  if (digits == copy.size() || copy.find_first_not_of("0123456789", digits) != std::string::npos) return false;
  *number = strtoll(copy.c_str(), nullptr, 10);
  return true;
}

int64_t element_count(const TagEntry& entry) {
  // Three ranges can multiply to more than any number holds; so many elements are too many for everything.
  constexpr int64_t kMost = int64_t{1} << 32;
  const auto extent = [](int32_t low, int32_t high) { return std::max<int64_t>(int64_t{high} - low + 1, 0); };
  const auto times = [](int64_t a, int64_t b) { return b != 0 && a > kMost / b ? kMost : a * b; };
  const int64_t first = extent(entry.dim1_low, entry.dim1_high);
  const int64_t second = extent(entry.dim2_low, entry.dim2_high);
  const int64_t third = extent(entry.dim3_low, entry.dim3_high);
  switch (entry.shape) {
    case PLC_ARRAY1:
      return first;
    case PLC_ARRAY2:
      return times(first, second);
    case PLC_ARRAY3:
      return times(times(first, second), third);
    default:
      return 1;
  }
}

namespace {

void check_record(const SourceLine& line, Findings* findings) {
  check_layout(line, findings);
  check_name(line, findings);
  check_type(line, findings);
  check_ranges(line, findings);
  check_string_length(line, findings);
  check_scope(line, findings);
  check_device(line, findings);
  check_limits(line, findings);
}

void check_form_text(const FileForm& form, Findings* findings) {
  SourceFile file = read_source(form.text());
  mark_kinds(form, &file);
  check_pieces(file, findings);
  check_line_ends(form, file, findings);
  check_shifts(file, findings);
  check_numbers(file, findings);
  for (const SourceLine& line : file.lines) {
    if (line.kind == LineKind::kRecord) check_record(line, findings);
  }
  check_runs(file, findings);
  check_across(file, findings);
  for (Finding& finding : *findings) finding.column = form.original_column(finding.line, finding.column);
}

}  // namespace

std::vector<Finding> check_text(const std::string& file_name, std::string_view text, const CheckOptions& options) {
  Findings findings;
  const FileForm form(text);
  if (form.is_readable()) check_form_text(form, &findings);
  findings.insert(findings.end(), form.findings().begin(), form.findings().end());
  check_file_name(file_name, options, &findings);
  std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
  });
  return findings;
}

Understanding load_file(const std::string& path) {
  Understanding understanding;
  static uint32_t group_ids[plc::kIdBlocks];
  TagEntry* entries = nullptr;
  IndexedTagEntry* groups = nullptr;
  const uint32_t* counts = build_tagtable(&entries, &groups, path.c_str(), group_ids);
  if (counts == nullptr) return understanding;
  understanding.plain_records = counts[0];
  understanding.max_indexed_id = counts[1];
  // A file without any record gives no table.
  understanding.loads = counts[0] != 0 || counts[1] != 0;
  while (groups != nullptr && groups[understanding.groups].entries != nullptr) ++understanding.groups;
  plc::free_tag_arrays(entries, groups);
  return understanding;
}

std::string apply_edits(std::string_view file_text, const std::vector<Finding>& findings, size_t* made) {
  const FileForm form(file_text);
  const std::string_view text = form.text();
  std::vector<Edit> edits;
  *made = 0;
  for (const Finding& finding : findings) {
    edits.insert(edits.end(), finding.edits.begin(), finding.edits.end());
    *made += finding.by_form ? 1 : 0;
  }
  std::sort(edits.begin(), edits.end(), [](const Edit& a, const Edit& b) { return a.offset < b.offset; });
  std::string out;
  size_t at = 0;
  for (const Edit& edit : edits) {
    if (edit.offset < at) continue;  // another edit has already changed these bytes
    out.append(text.substr(at, edit.offset - at)).append(edit.replacement);
    at = edit.offset + edit.length;
    ++*made;
  }
  out.append(text.substr(at));
  return out;
}

std::string corrected_text(const std::string& file_name, std::string_view text, const CheckOptions& options,
                           size_t* made) {
  // A corrected line may show what could not be seen before.
  constexpr int kMostRounds = 4;
  std::string corrected(text);
  *made = 0;
  for (int round = 0; round < kMostRounds; ++round) {
    const std::vector<Finding> findings = check_text(file_name, corrected, options);
    if (std::none_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.is_fixable(); })) {
      break;
    }
    size_t made_now = 0;
    corrected = apply_edits(corrected, findings, &made_now);
    *made += made_now;
  }
  return corrected;
}

}  // namespace tag_check
