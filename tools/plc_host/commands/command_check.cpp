// The command that checks tag files: what the driver will understand, and what their writer probably meant.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <system_error>

#include "base/text.h"
#include "base/whole_file.h"
#include "client/tags/tag_source.h"
#include "tag_check/checker.h"
#include "tag_check/form/file_form.h"
#include "tag_check/report.h"
#include "tag_check/rule_list.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/target/controller_address.h"
#include "tools/plc_host/written_file.h"

namespace plc_host {
namespace {

using tag_check::FileReport;
using tag_check::Finding;
using tag_check::Severity;

Severity severity_of(const Finding& finding) { return tag_check::rule_of(finding.rule).severity; }

// What only the address tells is left out where the system does not know it, which is told.
tag_check::CheckOptions check_options(const HostOptions& options, int* code) {
  tag_check::CheckOptions checked;
  if (options.address.empty()) return checked;
  const std::string host = split_controller_address(options.address, "--address").host;
  try {
    checked.address = find_controller(host);
    checked.has_address = true;
  } catch (const HostError& error) {
    if (options.live) throw;
    show_error(std::string(error.what()) + ". The address tells what the file has to be called; all else was checked");
    *code = error.code();
  }
  return checked;
}

FileReport check_file(const std::string& path, const std::string& text, const tag_check::CheckOptions& rules,
                      CommandOutput& output) {
  const EndsAtStop interruptible;
  FileReport report;
  report.file = path;
  report.findings = tag_check::check_text(path, text, rules);
  report.understanding = tag_check::load_file(path);
  for (const std::string& line : output.take_lines()) report.understanding.lines += line + "\n";
  return report;
}

bool is_error(const Finding& finding) { return severity_of(finding) == Severity::kError; }

size_t count_errors(const FileReport& report) {
  const auto errors = std::count_if(report.findings.begin(), report.findings.end(), is_error);
  // A file that is not loaded has an error, whether or not a finding says why.
  return errors == 0 && !report.understanding.loads ? 1 : static_cast<size_t>(errors);
}

std::string corrected_text(const std::string& path, const std::string& text, const tag_check::CheckOptions& rules,
                           size_t* made) {
  const EndsAtStop interruptible;
  return tag_check::corrected_text(path, text, rules, made);
}

// Writes the corrected copy, and says what was done and what is left. True when nothing is left that is an error.
bool fix_file(const FileReport& report, const std::string& text, const HostOptions& options,
              const tag_check::CheckOptions& rules, CommandOutput& output) {
  demand_apart(options.fixed_file, output.result_file());
  if (!tag_check::FileForm(text).is_readable()) {
    show_message(options.fixed_file + ": not written: " + report.file + " is not a text that can be corrected");
    return false;
  }
  size_t made = 0;
  const std::string fixed = corrected_text(report.file, text, rules, &made);
  const auto old_file = options.overwrites ? plc_base::OldFile::kReplaced : plc_base::OldFile::kKept;
  const std::string problem = plc_base::write_whole_file(
      options.fixed_file, fixed, with_settings_files(options.checked_files, options.settings), old_file);
  if (!problem.empty()) throw unwritten(options.fixed_file, problem);
  const size_t left = count_errors(check_file(options.fixed_file, fixed, rules, output));
  show_message(options.fixed_file + ": " + plc_base::plural(made, "correction") +
               (left == 0
                    ? ""
                    : "; left to do by hand: " + plc_base::grouped_number(left) + (left == 1 ? " error" : " errors") +
                          ", which plc-host check " + options.fixed_file + " shows"));
  return left == 0;
}

void keep_errors(FileReport* report) {
  auto& findings = report->findings;
  findings.erase(
      std::remove_if(findings.begin(), findings.end(), [](const Finding& finding) { return !is_error(finding); }),
      findings.end());
}

int check_live_if_asked(const std::vector<FileReport>& reports, const HostOptions& options, CommandOutput& output) {
  if (!options.live) return kExitOk;
  if (!reports.front().understanding.loads) {
    throw HostError(kExitTagFailed, "--live asks for nothing: the driver does not load " + reports.front().file);
  }
  return check_live(options, output);
}

void print_all(FILE* out, const std::string& text) { std::fwrite(text.data(), 1, text.size(), out); }

// What a shell makes the files of a folder of.
std::string folder_files(const std::string& folder) { return (std::filesystem::path(folder) / "*.csv").string(); }

// Nothing for a file that cannot be read, which is told: the others are checked all the same.
std::optional<std::string> text_or_told(const std::string& path, int* code) {
  try {
    return tag_file_text(path);
  } catch (const ClientError& error) {
    std::error_code unknown;
    const bool is_folder = std::filesystem::is_directory(path, unknown);
    show_error(error.what() + (is_folder ? ". Try: name the tag files in it, " + folder_files(path) : ""));
    *code = exit_code_of(error);
  }
  return std::nullopt;
}

// The report of a file that could be read; the code becomes that of its errors unless a file before it has one.
FileReport report_of(const std::string& path, const std::string& text, const HostOptions& options,
                     const tag_check::CheckOptions& rules, CommandOutput& output, int* code) {
  output.result_file().flush();  // of the files before: the check of this one may be interrupted
  FileReport report = check_file(path, text, rules, output);
  const bool is_good =
      options.fixed_file.empty() ? count_errors(report) == 0 : fix_file(report, text, options, rules, output);
  if (!is_good && *code == kExitOk) *code = kExitTagFailed;
  if (options.errors_only) keep_errors(&report);
  if (!options.sarif) {
    print_all(output.results(), options.json ? tag_check::json_report(report) : tag_check::text_report(report));
  }
  return report;
}

}  // namespace

int run_check(const HostOptions& options, CommandOutput& output) {
  if (options.list_rules) {
    print_all(output.results(), tag_check::rules_text(options.checked_files));
    return kExitOk;
  }
  if (options.live) demand_live(options);
  std::vector<FileReport> reports;
  int code = kExitOk;
  int address_code = kExitOk;
  const tag_check::CheckOptions rules = check_options(options, &address_code);
  for (const std::string& path : options.checked_files) {
    const std::optional<std::string> text = text_or_told(path, &code);
    if (text) reports.push_back(report_of(path, *text, options, rules, output, &code));
  }
  if (reports.empty()) return code;
  if (code == kExitOk) code = address_code;
  if (options.sarif) print_all(output.results(), tag_check::sarif_report(reports));
  const int live_code = check_live_if_asked(reports, options, output);
  return live_code == kExitOk ? code : live_code;
}

}  // namespace plc_host
