// The checker's findings as text, as JSON lines and as SARIF.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "finding.h"

namespace tag_check {

// One checked file.
struct FileReport {
  std::string file;
  Understanding understanding;
  std::vector<Finding> findings;
};

// Of more findings of one rule than these, people are shown the first, and how many there are besides.
constexpr size_t kShownOfARule = 10;

// "file:line:column: severity: message [T001]", with the suggestion on a line of its own behind the first of each rule,
// then what the driver makes of the file.
std::string text_report(const FileReport& report);

// One JSON object a line: a finding each, all of them, then one with what the driver makes of the file.
std::string json_report(const FileReport& report);

// One SARIF 2.1.0 document for all files. The last result that is shown of a rule counts for those behind it.
std::string sarif_report(const std::vector<FileReport>& reports);

// The rules with these codes as text, all of them for none: for the manual.
std::string rules_text(const std::vector<std::string>& codes);

}  // namespace tag_check
