// A tag file of any bytes under the checker: its findings, what it corrects, its reports, and whether it sees the
// records that the driver sees.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz_input.h"
#include "judge.h"
#include "memory_files.h"
#include "plc_driver/tags/tag_file.h"
#include "sheet_words.h"
#include "spelling.h"
#include "tag_check/checker.h"
#include "tag_check/new_tags.h"
#include "tag_check/report.h"
#include "tag_check/rule_list.h"
#include "tag_words.h"

namespace {

using fuzz::demand;
using tag_check::Finding;
using tag_check::SourceFile;

// Every byte belongs to one line with its line end, or to one piece that is dropped.
void judge_source(const SourceFile& file) {
  size_t bytes = 0;
  for (const tag_check::SourceLine& line : file.lines) bytes += line.text.size() + 1;
  for (const tag_check::DroppedPiece& piece : file.dropped) bytes += piece.length;
  demand(bytes == file.text.size(), "lines and dropped pieces are the text");
}

void judge_findings(const std::string& file_text, const std::vector<Finding>& findings) {
  const tag_check::FileForm form(file_text);
  const std::string_view text = form.text();
  // A carriage return alone ends a line too.
  const auto ends = std::count(text.begin(), text.end(), '\n') + std::count(file_text.begin(), file_text.end(), '\r');
  const auto lines = static_cast<size_t>(ends) + 1;
  for (const Finding& finding : findings) {
    demand(std::string(tag_check::rule_of(finding.rule).code) == finding.rule, "a finding has a rule");
    demand(finding.line >= 1 && finding.line <= lines && finding.column >= 1, "a finding has a place in the file");
    demand(finding.last_line == 0 || (finding.last_line >= finding.line && finding.last_line <= lines),
           "the last line of a finding is in the file");
    for (const tag_check::Edit& edit : finding.edits) {
      demand(edit.offset <= text.size() && edit.length <= text.size() - edit.offset, "an edit stays in the text");
    }
  }
}

bool has_edits(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.is_fixable(); });
}

// A corrected line may show what could not be seen before, in the line that got its end above all.
void judge_corrections(std::string text, std::vector<Finding> findings) {
  constexpr int kMostRounds = 4;
  for (int round = 0; has_edits(findings); ++round) {
    demand(round < kMostRounds, "corrections come to an end");
    size_t made = 0;
    text = tag_check::apply_edits(text, findings, &made);
    demand(made > 0, "a correction is made");
    findings = tag_check::check_text("PLC1_0.csv", text, {});
  }
}

// What is written of a list has no error that the list was not told of.
void judge_new_tags(const std::string& text) {
  const tag_check::NewTagList list = tag_check::read_tag_list(text);
  const tag_check::NewTagLines made = tag_check::make_tag_lines(list.tags, {});
  const auto is_error = [](const Finding& finding) {
    return tag_check::rule_of(finding.rule).severity == tag_check::Severity::kError;
  };
  const auto stays = [&](const Finding& finding) { return is_error(finding) && !finding.is_fixable(); };
  if (!list.findings.empty() || std::any_of(made.findings.begin(), made.findings.end(), stays)) return;
  demand(static_cast<size_t>(std::count(made.text.begin(), made.text.end(), '\n')) == list.tags.size(),
         "a line for each variable of the list");
  const std::vector<Finding> found = tag_check::check_text("PLC1_0.csv", made.text, {});
  demand(std::none_of(found.begin(), found.end(), is_error), "lines of a good list have no error");
}

void judge_driver(const std::string& text, const SourceFile& file) {
  fuzz::set_tag_file(text);
  const tag_check::Understanding understanding = tag_check::load_file("PLC1_0.csv");
  if (!understanding.loads) return;
  const auto plain = static_cast<size_t>(std::count_if(
      file.lines.begin(), file.lines.end(), [](const tag_check::SourceLine& line) { return !line.indexed; }));
  demand(plain == understanding.plain_records, "checker and driver see the same plain records");
}

void judge_json(const tag_check::FileReport& report) {
  const std::string text = tag_check::json_report(report);
  demand(fuzz::is_shown(text), "a report in JSON is shown text");
  size_t records = 0;
  for (size_t at = 0; at < text.size(); ++records) {
    const size_t end = text.find('\n', at);
    demand(nlohmann::json::accept(text.substr(at, end - at)), "a line of the report is JSON");
    at = end + 1;
  }
  demand(records == report.findings.size() + 1, "a line for each finding and one for the driver");
}

void judge_reports(uint8_t choice, const std::string& name, std::vector<Finding> findings) {
  // The whole list of rules is in it: one set of findings in 256, which an input's neighbours do not share.
  uint32_t mixed = 2166136261U;
  for (const Finding& finding : findings) mixed = (mixed ^ finding.column) * 16777619U;
  tag_check::FileReport report;
  report.file = name;
  report.findings = std::move(findings);
  if ((mixed >> 16U) % 256 == 1) {
    const std::string text = tag_check::sarif_report({report});
    demand(fuzz::is_shown(text) && nlohmann::json::accept(text), "SARIF is JSON and shown text");
  } else if ((choice & 1U) != 0) {
    judge_json(report);
  } else {
    const std::string text = tag_check::text_report(report);
    const auto shown = std::min(report.findings.size(), tag_check::kShownOfARule);
    demand(std::count(text.begin(), text.end(), '\n') >= static_cast<std::ptrdiff_t>(shown + 1),
           "a line for each finding of a rule up to ten");
  }
}

// As it is, or each byte as a unit of UTF-16.
std::string encoded(uint8_t choice, std::string text) {
  const unsigned kind = choice / 32U;
  if (kind < 4) return text;
  const bool is_little = kind % 2 == 0;
  std::string units;
  if (kind < 6) units = is_little ? "\xFF\xFE" : "\xFE\xFF";
  for (const char sign : text) units += is_little ? std::string{sign, '\0'} : std::string{'\0', sign};
  return units;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (freopen("/dev/null", "w", stdout) == nullptr) abort();
  demand(tag_check::rules_text({}).find("T001") == 0, "the rules are listed");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  static constexpr const char* kNames[] = {
      "PLC1_0.csv", "PLC7F000001_65535.csv", "plc.csv",    "PLC01_0.csv", "PLC1_00.csv", "a/PLCFFFFFFFF_7.csv",
      "PLCX_1.csv", "x\ny\x1B[2J_\xFF.csv",  "PLC1_7.txt", "PLC1_7"};
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  const uint8_t name_choice = input.byte();
  const std::string name = kNames[name_choice % (sizeof kNames / sizeof kNames[0])];
  const std::string rest = input.text();
  const bool is_sheet = (choice & 16U) != 0;
  const std::string text =
      is_sheet ? encoded(choice, fuzz::spelled(rest, fuzz::kSheetWords)) : fuzz::spelled(rest, fuzz::kTagWords);
  const SourceFile file = tag_check::read_source(text);
  judge_source(file);
  tag_check::CheckOptions options;
  options.has_address = (choice & 2U) != 0;
  options.address = 1;
  const std::vector<Finding> findings = tag_check::check_text(name, text, options);
  judge_findings(text, findings);
  if ((choice & 4U) != 0 && (choice & 8U) != 0) {
    judge_new_tags(text);
  } else if ((choice & 4U) != 0) {
    judge_corrections(text, findings);
  } else if ((choice & 8U) != 0) {
    judge_driver(text, file);
  } else {
    judge_reports(choice, name, findings);
  }
  return 0;
}
