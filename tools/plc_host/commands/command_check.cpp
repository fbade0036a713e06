// The command that checks tag files: what the driver will understand, and what their writer probably meant.
#include <algorithm>
#include <cstdio>

#include "base/text.h"
#include "base/whole_file.h"
#include "client/tags/tag_source.h"
#include "tag_check/checker.h"
#include "tag_check/report.h"
#include "tag_check/rule_list.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"

namespace plc_host {
namespace {

using tag_check::FileReport;
using tag_check::Finding;
using tag_check::Severity;

Severity severity_of(const Finding& finding) { return tag_check::rule_of(finding.rule).severity; }

FileReport check_file(const std::string& path, const std::string& text, const HostOptions& options,
                      CommandOutput& output) {
  tag_check::CheckOptions check_options;
  check_options.has_address = !options.address.empty();
  if (check_options.has_address) check_options.address = parse_address(options.address);
  FileReport report;
  report.file = path;
  report.findings = tag_check::check_text(path, text, check_options);
  report.understanding = tag_check::load_file(path);
  for (const std::string& line : output.take_lines()) report.understanding.lines += line + "\n";
  return report;
}

// Writes the corrected copy, and says what was done.
void fix_file(const FileReport& report, const std::string& text, const HostOptions& options) {
  size_t made = 0;
  const std::string fixed = tag_check::apply_edits(text, report.findings, &made);
  const auto old_file = options.overwrites ? plc_base::OldFile::kReplaced : plc_base::OldFile::kKept;
  std::string problem = plc_base::write_whole_file(options.fixed_file, fixed, options.checked_files, old_file);
  if (problem == plc_base::kFileIsThere) problem += "; add --overwrite if it is to be replaced";
  if (!problem.empty()) throw HostError(kExitOutput, "cannot write " + options.fixed_file + ": " + problem);
  show_message(options.fixed_file + ": " + plc_base::plural(made, "correction"));
}

void keep_errors(FileReport* report) {
  auto& findings = report->findings;
  findings.erase(std::remove_if(findings.begin(), findings.end(),
                                [](const Finding& finding) { return severity_of(finding) != Severity::kError; }),
                 findings.end());
}

bool has_errors(const FileReport& report) {
  const auto& findings = report.findings;
  return !report.understanding.loads || std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return severity_of(finding) == Severity::kError;
  });
}

void print_all(FILE* out, const std::string& text) { std::fwrite(text.data(), 1, text.size(), out); }

}  // namespace

int run_check(const HostOptions& options, CommandOutput& output) {
  if (options.list_rules) {
    print_all(output.results(), tag_check::rules_text());
    return kExitOk;
  }
  std::vector<FileReport> reports;
  bool clean = true;
  for (const std::string& path : options.checked_files) {
    const std::string text = tag_file_text(path);
    FileReport report = check_file(path, text, options, output);
    if (!options.fixed_file.empty()) fix_file(report, text, options);
    clean = clean && !has_errors(report);
    if (options.errors_only) keep_errors(&report);
    if (!options.sarif) {
      print_all(output.results(), options.json ? tag_check::json_report(report) : tag_check::text_report(report));
    }
    reports.push_back(std::move(report));
  }
  if (options.sarif) print_all(output.results(), tag_check::sarif_report(reports));
  return clean ? kExitOk : kExitTagFailed;
}

}  // namespace plc_host
