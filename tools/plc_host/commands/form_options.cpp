// Takes the form of results, by one of its two spellings.
#include "tools/plc_host/commands/form_options.h"

#include <CLI/Error.hpp>
#include <CLI/Option.hpp>
#include <string>

#include "base/near_names.h"
#include "base/text.h"
#include "tools/plc_host/exit_codes.h"

namespace plc_host {
namespace {

// Words of other programs for the same.
constexpr char kFormWords[] = "text, json (an object a line) or csv";

void take_form(const std::string& word, HostOptions& options) {
  if (word == "text") {
    options.text = true;
  } else if (word == "json") {
    options.json = true;
  } else if (word == "csv") {
    options.csv = true;
  } else {
    const std::string meant = plc_base::did_you_mean(word, {"text", "json", "csv"});
    throw CLI::ValidationError("--format " + plc_base::told_name(word) + ": give " + kFormWords +
                               (meant.empty() ? "" : ", " + meant));
  }
}

}  // namespace

void add_form_option(CLI::App& command, HostOptions& options) {
  command
      .add_option_function<std::string>(
          "--format", [&options](const std::string& word) { take_form(word, options); },
          "Write the output in this form; default: text")
      ->type_name("TEXT:{text,json,csv}");
  command.add_flag("--csv", options.csv, "Write rows for spreadsheets, like --format csv");
}

void add_form_options(CLI::App& command, HostOptions& options) {
  add_form_option(command, options);
  command.add_flag("--int64-text", options.wide_texts, "Write 64-bit integers as texts in JSON");
}

void add_raw_option(CLI::App& command, HostOptions& options) {
  command.add_flag("--raw", options.raw, "Write only the values, a line each; none unless all were read");
}

void check_form(const HostOptions& options) {
  const int forms = int{options.json} + int{options.csv} + int{options.raw} + int{options.text};
  if (forms > 1) throw HostError(kExitUsage, "which form? Give one of --json, --csv, --raw and --format");
  if (options.wide_texts && !options.json) throw HostError(kExitUsage, "--int64-text goes with --json");
}

ResultForm form_of(const HostOptions& options) {
  ResultForm form;
  form.form = options.json ? Form::kJson : options.csv ? Form::kCsv : options.raw ? Form::kRaw : Form::kText;
  form.wide = options.wide_texts ? WideIntegers::kTexts : WideIntegers::kNumbers;
  return form;
}

}  // namespace plc_host
