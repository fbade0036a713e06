// Collects the programs of a tag file's local variables, each as its line spells it.
#include "form/program_names.h"

#include <algorithm>

#include "form/csv_line.h"

namespace tag_check {

ProgramNames::ProgramNames(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find_first_of("\r\n", at), text.size());
    add_line(text.substr(at, end - at));
    at = end + 1;
  }
}

void ProgramNames::add_line(std::string_view line) {
  constexpr size_t kGlobalField = 8;
  const char separator = separator_of(line);
  const CsvLine csv = split_csv(line, separator);
  const size_t more = separator == ',' && !csv.has_quotes ? name_fields(csv) : 0;
  if (csv.is_broken || csv.fields.size() <= kProgramField + more) return;
  if (without_blanks(csv.fields[kGlobalField + more].text) == "1") return;  // the driver ignores its program
  const std::string& program = csv.fields[kProgramField + more].text;
  spellings_[std::string(without_blanks(program))].insert(program);
}

std::string ProgramNames::other_than(std::string_view program) const {
  const auto found = spellings_.find(without_blanks(program));
  if (found == spellings_.end()) return "";
  const auto other = std::find_if(found->second.rbegin(), found->second.rend(),
                                  [&](const std::string& spelling) { return spelling != program; });
  return other == found->second.rend() ? "" : *other;
}

}  // namespace tag_check
