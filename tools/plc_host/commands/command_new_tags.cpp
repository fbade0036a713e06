// The part of the command tags that writes lines of tag files: of one variable, or of a list of names and types.
#include <CLI/App.hpp>
#include <CLI/Option.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string_view>

#include "base/text.h"
#include "base/whole_file.h"
#include "client/tags/tag_source.h"
#include "tag_check/form/file_form.h"
#include "tag_check/new_tags.h"
#include "tag_check/report.h"
#include "tag_check/rule_list.h"
#include "tag_check/source_line.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/form_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/shell_word.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/written_file.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

using tag_check::Finding;
using tag_check::NewTag;
using tag_check::NewTagLines;
using tag_check::NewTagPlace;
using tag_check::Severity;

constexpr uint32_t kLargestPlainId = 65535;
constexpr uint32_t kSmallestIndexedId = 262144;
constexpr uint32_t kLargestId = 16777215;  // that a host can ask for

// An error that stays, and what is only odd in a file that is there but of no use in a new line.
bool is_wrong(const Finding& finding) {
  const Severity severity = tag_check::rule_of(finding.rule).severity;
  constexpr std::string_view kOddRules[] = {"T074", "T075", "T110"};
  const bool is_odd = std::find(std::begin(kOddRules), std::end(kOddRules), finding.rule) != std::end(kOddRules);
  return is_odd || (severity == Severity::kError && !finding.is_fixable());
}

// What to do in the words of the command line, where the rule speaks of columns.
std::string advice_on(const Finding& finding) {
  constexpr std::pair<const char*, const char*> kAdvice[] = {
      {"T006", "Write a name and a type into each line, as in Motor.Speed,DINT; plc-host check looks at tag files."},
      {"T020", "Give the variable's name first, then its type."},
      {"T023", "The list was probably saved as Latin-1 (ANSI): save it as CSV UTF-8."},
      {"T040", "Give the type behind the name."},
      {"T050", "Write the length with the type, STRING(20), or with --length 20."},
      {"T052", "Write the length with the type, STRING(20), or with --length 20."},
      {"T066", "Correct the heading where the column counts; a column that is not used does no harm."},
      {"T074", "Give the program's number with --program-number, or leave it out."},
      {"T075", "Write the name alone, and its program in the column Program."},
      {"T110", "Leave one of them out."}};
  for (const auto& [rule, advice] : kAdvice) {
    if (std::strcmp(finding.rule, rule) == 0) return advice;
  }
  return tag_check::rule_of(finding.rule).suggestion;
}

// Names that are not UTF-8 have one cause, the character set of the list.
size_t shown_of(std::string_view rule) { return rule == "T023" ? 1 : tag_check::kShownOfARule; }

// Tells the findings, of each rule the first ones; true when nothing is wrong.
bool tell(const std::vector<Finding>& findings, const std::string& list) {
  std::map<std::string_view, size_t> told;
  std::set<std::string_view> advised;
  bool is_good = true;
  for (const Finding& finding : findings) {
    is_good = is_good && !is_wrong(finding);
    const size_t number = ++told[finding.rule];
    if (number > shown_of(finding.rule)) continue;
    std::string text = list.empty() ? "" : list + ":" + std::to_string(finding.line) + ": ";
    text += finding.message + (finding.is_fixable() ? "; corrected" : "");
    show_message(text);
    const bool needs_advice = !finding.is_fixable() && !finding.has_remedy;
    if (needs_advice && advised.insert(finding.rule).second) show_message("    " + advice_on(finding));
  }
  for (const auto& [rule, count] : told) {
    if (count <= shown_of(rule)) continue;
    show_message(list + ": and " + plc_base::grouped_number(count - shown_of(rule)) + " more of " + std::string(rule));
  }
  return is_good;
}

std::vector<Finding> in_order(std::vector<Finding> findings, const std::vector<Finding>& more) {
  findings.insert(findings.end(), more.begin(), more.end());
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.line < b.line; });
  return findings;
}

// SCOPE/NAME is how commands call a variable of a program; its line has both apart.
void refuse_program_in_name(const HostOptions& options) {
  const std::string& name = options.listed[0];
  const size_t slash = name.find('/');
  if (slash == std::string::npos || slash == 0 || slash + 1 == name.size()) return;
  std::string text = plc_base::quoted(name) + " names a program: write tags --new ";
  text.append(shell_word(name.substr(slash + 1))).append(" ").append(shell_word(options.listed[1]));
  throw HostError(kExitUsage, text + " --scope " + shell_word(name.substr(0, slash)));
}

// Of a file behind which the lines are to stand.
uint32_t records_of(const std::string& path, const std::string& text) {
  if (text.empty()) {
    throw HostError(kExitTagFile, path + ": the file is empty. Try: without --after for the first line of a file");
  }
  const tag_check::FileForm form(text);
  if (!form.findings().empty()) {
    const Finding& finding = form.findings().front();
    std::string reason = path + ": " + finding.message;
    reason.append(finding.by_form ? ". Try: plc-host check --fix COPY " : ". Try: plc-host check ").append(path);
    throw HostError(kExitTagFile, reason);
  }
  if (text.back() != '\n') {
    throw HostError(kExitTagFile,
                    path + ": the last line has no trailing newline; plc-host check --fix writes a copy that has it");
  }
  uint32_t records = 0;
  for (const tag_check::SourceLine& line : tag_check::read_source(text).lines) records += line.indexed ? 0 : 1;
  return records;
}

int write_lines(const NewTagLines& made, const HostOptions& options, CommandOutput& output) {
  const NewTagOptions& wanted = options.new_tags;
  if (wanted.output.empty()) {
    std::fwrite(made.text.data(), 1, made.text.size(), output.results());
    return kExitOk;
  }
  const auto old_file = options.overwrites ? plc_base::OldFile::kReplaced : plc_base::OldFile::kKept;
  const std::string problem = plc_base::write_whole_file(
      wanted.output, made.text, with_settings_files({wanted.list, wanted.after}, options.settings), old_file);
  if (!problem.empty()) throw unwritten(wanted.output, problem);
  const auto lines = std::count(made.text.begin(), made.text.end(), '\n');
  show_message(wanted.output + ": " + plc_base::grouped_number(static_cast<uint64_t>(lines)) +
               (lines == 1 ? " variable" : " variables"));
  return kExitOk;
}

NewTag tag_of(const HostOptions& options) {
  const NewTagOptions& wanted = options.new_tags;
  NewTag tag;
  tag.name = options.listed[0];
  tag.type = options.listed[1];
  tag.ranges = wanted.ranges;
  tag.length = wanted.length;
  tag.scope = wanted.scope;
  tag.number = wanted.program_number;
  tag.device = wanted.device;
  return tag;
}

}  // namespace

void add_new_tag_options(CLI::App& command, HostOptions& options) {
  const std::string group = "New lines";
  NewTagOptions& wanted = options.new_tags;
  CLI::Option* make = command.add_flag("--new", wanted.wanted, "Write the line of a variable from NAME and TYPE");
  CLI::Option* list = command.add_option("--from", wanted.list, "Write the lines of a list of names and types");
  CLI::Option* out =
      plc_usage::add_output_file(command, "--output", wanted.output, "Write to this file instead of standard output");
  CLI::Option* overwrite = command.add_flag("--overwrite", options.overwrites, "Let --output replace an existing file");
  CLI::Option* after = command.add_option("--after", wanted.after, "Continue the ids of this tag file");
  CLI::Option* ranges = command.add_option("--ranges", wanted.ranges, "Set the ranges of an array, 0..9 or 0..9_0..4");
  CLI::Option* length = command.add_option("--length", wanted.length, "Set the length of a STRING, in characters");
  CLI::Option* scope =
      command.add_option("--scope", wanted.scope, "Make the variable local to this program; default: global");
  CLI::Option* number = command.add_option("--program-number", wanted.program_number, "Set the number of that program");
  CLI::Option* device = command.add_option("--device", wanted.device, "Set the device memory, for example MR0");
  CLI::Option* id = plc_usage::add_number(command, "--id", wanted.id, {0, kLargestId},
                                          "Set the id of the line: its record number, or an indexed one");
  for (CLI::Option* option : {make, list, out, overwrite, after, ranges, length, scope, number, device, id}) {
    option->group(group);
    if (option != make && option != overwrite) option->needs(make);
  }
  const std::pair<CLI::Option*, const char*> values[] = {{list, "LIST"},     {out, "FILE"},      {after, "FILE"},
                                                         {ranges, "RANGES"}, {length, "LENGTH"}, {scope, "PROGRAM"},
                                                         {number, "NUMBER"}, {device, "DEVICE"}};
  for (const auto& [option, value] : values) option->type_name(value);
  overwrite->needs(out);
  number->needs(scope);
  id->excludes(after);
}

void check_tags(const HostOptions& options) {
  const NewTagOptions& wanted = options.new_tags;
  if (!wanted.wanted) {
    check_listing(options);
    return;
  }
  if (form_of(options).form != Form::kText || options.names_only) {
    throw HostError(kExitUsage, "--new writes lines of a tag file: neither --json, --csv nor --names goes with it");
  }
  if (!options.names.empty() || names_tag_file(options)) {
    throw HostError(kExitUsage, "--new makes lines: neither --tags, --address nor --names-from goes with it");
  }
  if (wanted.list.empty() && options.listed.size() != 2) {
    throw HostError(kExitUsage, "--new takes a NAME and a TYPE, as in tags --new Motor.Speed DINT, or --from LIST");
  }
  if (wanted.id > kLargestPlainId && wanted.id < kSmallestIndexedId) {
    throw HostError(kExitUsage, "--id " + std::to_string(wanted.id) +
                                    ": no host can use it; give 0 to 65535 for a plain variable, 262144 to 16777215 "
                                    "for an indexed one");
  }
  if (wanted.list.empty()) return refuse_program_in_name(options);
  const bool says_more = !wanted.ranges.empty() || !wanted.length.empty() || !wanted.scope.empty() ||
                         !wanted.device.empty() || wanted.program_number != "0" || wanted.id != 0;
  if (says_more || !options.listed.empty()) {
    throw HostError(kExitUsage,
                    "--from has the variables with all that is said of them: no NAME, TYPE, --ranges, "
                    "--length, --scope, --program-number, --device or --id besides");
  }
}

int run_new_tags(const HostOptions& options, CommandOutput& output) {
  auto interruptible = std::make_unique<EndsAtStop>();
  const NewTagOptions& wanted = options.new_tags;
  tag_check::NewTagList list;
  if (wanted.list.empty()) {
    list.tags = {tag_of(options)};
  } else {
    list = tag_check::read_tag_list(tag_file_text(wanted.list));
  }
  const std::string before = wanted.after.empty() ? std::string() : tag_file_text(wanted.after);
  const NewTagPlace place = {before, wanted.after, wanted.after.empty() ? wanted.id : records_of(wanted.after, before)};
  const NewTagLines made = tag_check::make_tag_lines(list.tags, place);
  interruptible.reset();
  if (!tell(in_order(list.findings, made.findings), wanted.list)) {
    if (wanted.list.empty()) return kExitUsage;
    show_message(wanted.list + ": nothing was written");
    return kExitTagFailed;
  }
  return write_lines(made, options, output);
}

}  // namespace plc_host
