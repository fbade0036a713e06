// The command that measures a controller: its options, the folder that its files go to, and what it says at the end.
#include <netinet/in.h>
#include <CLI/App.hpp>
#include <CLI/Error.hpp>
#include <CLI/Option.hpp>
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/near_names.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "client/tags/meant_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/setting_options.h"
#include "tools/plc_host/commands/survey_folder.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/sim_process.h"
#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey_report/report_words.h"
#include "tools/plc_host/survey_report/summary.h"
#include "tools/plc_host/survey_steps/scratch.h"
#include "tools/plc_host/survey_steps/survey.h"
#include "tools/plc_host/survey_steps/survey_command.h"
#include "tools/plc_host/target/controller_address.h"
#include "tools/plc_host/target/tag_files.h"
#include "tools/plc_host/target/wanted_names.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

using survey::Declarations;
using survey::SurveyPlan;
using survey::SurveyRecord;
using Json = nlohmann::ordered_json;

constexpr uint32_t kMostRate = 1000;
constexpr uint32_t kLongestPeriodMs = 3600000;
constexpr double kMostHours = 1000;
constexpr char kOwnSimulator[] = "plc-sim";
constexpr char kQuietSimulator[] = "--quiet";

std::string now_text() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

// Of a folder the files of the controller.
std::vector<std::string> without_folders(const std::vector<std::string>& given, const Target& target) {
  std::vector<std::string> files;
  for (const std::string& one : given) {
    std::error_code error;
    if (!std::filesystem::is_directory(one, error)) {
      files.push_back(one);
      continue;
    }
    const std::vector<std::string> found = tag_files_in(one, target);
    files.insert(files.end(), found.begin(), found.end());
  }
  return files;
}

std::vector<std::string> tag_files_of(const HostOptions& options, const Target& target) {
  if (!options.survey.tag_files.empty()) return without_folders(options.survey.tag_files, target);
  if (!options.sim_tag_file.empty()) return {options.sim_tag_file};
  if (!options.tag_file.empty()) return {options.tag_file};
  demand_own_tag_file(target);
  return {tag_file_name(target)};
}

// The driver's folder is not the one that the command was called in.
std::vector<std::string> absolute_files(const std::vector<std::string>& files) {
  std::vector<std::string> absolute;
  for (const std::string& file : files) {
    demand_tag_file(file);
    absolute.push_back(std::filesystem::absolute(file).lexically_normal());
  }
  return absolute;
}

// "; did you mean Motor.Speed?", from all tag files; "" where no name is near.
std::string meant_instead(const Declarations& declared, const std::string& name) {
  for (const TagList& list : declared.lists) {
    if (const std::optional<std::string> meant = respelled(list, name)) return "; did you mean " + *meant + "?";
  }
  const std::vector<std::string> meant = meant_names(name, declared.names());
  return meant.empty() ? "" : "; did you mean " + plc_base::joined_with_or(meant) + "?";
}

void check_written(const SurveyPlan& plan, const Declarations& declared) {
  for (const std::string& name : plan.written) {
    try {
      survey::scratch_of(declared, name);
    } catch (const NoSuchName&) {
      if (is_pattern(name)) throw HostError(kExitUsage, "--write " + name + ": give one variable, not a pattern");
      throw HostError(kExitUsage,
                      "--write " + name + ": no tag file has a variable of this name" + meant_instead(declared, name));
    } catch (const ReferenceError& error) {
      throw HostError(kExitUsage, "--write " + name + ": " + error.what());
    }
  }
}

uint64_t count_of_state(const SurveyRecord& record, survey::VariableFinding::State state) {
  const auto has_state = [state](const survey::VariableFinding& finding) { return finding.state == state; };
  const auto& findings = record.variables.findings;
  return static_cast<uint64_t>(std::count_if(findings.begin(), findings.end(), has_state));
}

const char* usable_word(survey::Verdict::Usable usable) {
  switch (usable) {
    case survey::Verdict::Usable::kYes:
      return "usable";
    case survey::Verdict::Usable::kWithoutStatus:
      return "usable without its check of the status";
    case survey::Verdict::Usable::kWithoutValueEnd:
      return "usable without its check of where values end";
    case survey::Verdict::Usable::kWithoutBoth:
      return "usable without its checks of the status and of where values end";
    case survey::Verdict::Usable::kNotUsable:
      return "not usable";
    case survey::Verdict::Usable::kUnknown:
      break;
  }
  return "not known";
}

// What became of the folder.
struct Filled {
  const std::string& folder;
  bool is_written;  // else it holds the former survey
};

struct VariableCounts {
  explicit VariableCounts(const SurveyRecord& record)
      : all(record.variables.declared),
        found(record.variables.findings.size()),
        good(static_cast<uint64_t>(
            std::count_if(record.variables.findings.begin(), record.variables.findings.end(), survey::is_read))),
        without_value(count_of_state(record, survey::VariableFinding::State::kGood) - good),
        refused(count_of_state(record, survey::VariableFinding::State::kRefused)),
        not_tried(count_of_state(record, survey::VariableFinding::State::kNotTried)) {}
  uint64_t all;
  uint64_t found;
  uint64_t good;
  uint64_t without_value;
  uint64_t refused;
  uint64_t not_tried;
};

std::vector<std::string> missing_programs(const SurveyRecord& record) {
  std::vector<std::string> scopes;
  for (const survey::ProgramFinding& one : record.programs.findings) {
    if (one.state == survey::ProgramFinding::State::kMissing) scopes.push_back(one.scope);
  }
  return scopes;
}

// "45 variables, 40 read, 2 refused, 3 otherwise: see the report"
std::string counts_text(const VariableCounts& count, const std::string& ended) {
  std::string text = plc_base::plural(count.all, "variable") + ", ";
  if (count.found == 0 && !ended.empty()) return text + "none read: " + ended;
  text += std::to_string(count.good) + " read, " + std::to_string(count.refused) + " refused";
  if (count.without_value > 0) text += ", " + std::to_string(count.without_value) + " without a value: see the report";
  const uint64_t others = count.found - count.good - count.without_value - count.refused - count.not_tried;
  if (others > 0) text += ", " + std::to_string(others) + " otherwise: see the report";
  if (count.not_tried > 0) text += ", " + std::to_string(count.not_tried) + " not tried";
  return text;
}

std::string address_of(const SurveyRecord& record) { return record.link.host + ":" + std::to_string(record.link.port); }

Json survey_summary_json(const SurveyRecord& record, const Filled& filled, const VariableCounts& count) {
  const bool has_hours = survey::has_figures(record.endurance.step);
  Json line = {{"controller", address_of(record)},
               {"variables", count.all},
               {"good", count.good},
               {"refused", count.refused},
               {"guarded", usable_word(record.verdict.usable)},
               {"whole", record.is_whole},
               {"missing_programs", missing_programs(record)},
               {"lost_rounds", has_hours ? Json(record.endurance.losses) : Json()},
               {"lost_values", has_hours ? Json(record.endurance.lost_values) : Json()},
               {"not_set_back", record.writes.not_set_back},
               {"folder", filled.folder},
               {"written", filled.is_written}};
  if (!record.is_whole) line["ended"] = record.ended;
  return line;
}

std::string verdict_lines(const SurveyRecord& record) {
  std::string text = "guarded build: ";
  text.append(usable_word(record.verdict.usable));
  if (!record.is_whole && survey::is_usable(record.verdict.usable)) text += " so far";
  if (survey::is_foreign(record.heads)) text.append(": ").append(survey::kForeign);
  text += "\n";
  const std::string warning = survey::contract_warning(record);
  if (!warning.empty()) text.append("warning: ").append(warning).append("\n");
  const std::string lacking = survey::lacking_note(record);
  if (!lacking.empty()) text.append("warning: ").append(lacking).append("\n");
  for (const survey::Recommendation& one : record.recommendations) {
    text.append("set ").append(one.setting).append(": ").append(one.value).append("\n");
  }
  return text;
}

// Also where hours were asked for and none were made.
std::string hours_lines(const survey::Endurance& endurance) {
  if (endurance.hours_asked <= 0) return {};
  if (!survey::has_figures(endurance.step)) return "hours: " + endurance.step.why + "\n";
  const std::string turns = survey::turns_text(endurance);
  return "hours: " + survey::losses_text(endurance) + "\n" + (turns.empty() ? "" : "hours: " + turns + "\n");
}

std::string survey_summary_lines(const SurveyRecord& record, const Filled& filled, const VariableCounts& count) {
  std::string text = address_of(record) + ": " + counts_text(count, record.ended) + "\n";
  const std::vector<std::string> not_compared = survey::names_not_compared(record.variables);
  if (!not_compared.empty()) {
    text += "not compared with what the driver gives: " + survey::some_names(not_compared) + ": see the report\n";
  }
  const std::string refusals = survey::refusals_text(record.heads);
  if (!refusals.empty()) text += refusals + "\n";
  for (const survey::ProgramFinding& one : record.programs.findings) {
    if (survey::has_number(one)) continue;
    text += "program " + quote_text(one.scope) + ": " + survey::missing_words(one) + "\n";
  }
  text += hours_lines(record.endurance);
  text += verdict_lines(record);
  if (!record.is_whole && count.found > 0) text += "not whole: " + record.ended + "\n";
  text += filled.is_written ? "written: " + filled.folder + "/report.html, report.json, survey.pcapng, profile.toml\n"
                            : "not written: nothing was measured, and " + filled.folder + " keeps the former survey\n";
  return text;
}

void write_survey_summary(FILE* results, const SurveyRecord& record, const Filled& filled, bool json) {
  const VariableCounts count(record);
  if (json) return write_json_line(results, survey_summary_json(record, filled, count));
  const std::string text = survey_summary_lines(record, filled, count);
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    std::fputs((plc_base::shown_line(text.substr(at, end - at)) + "\n").c_str(), results);
    at = end + 1;
  }
}

bool has_failure(const SurveyRecord& record) {
  const auto is_bad = [](const survey::VariableFinding& finding) {
    return finding.state != survey::VariableFinding::State::kGood &&
           finding.state != survey::VariableFinding::State::kNotTried;
  };
  const auto is_lost = [](const survey::WriteFinding& one) {
    return one.acknowledged != true || one.read_back != true || one.set_back != true;
  };
  if (record.endurance.losses > 0 || !missing_programs(record).empty()) return true;
  return std::any_of(record.variables.findings.begin(), record.variables.findings.end(), is_bad) ||
         std::any_of(record.writes.findings.begin(), record.writes.findings.end(), is_lost);
}

int survey_exit_code(const SurveyRecord& record, bool is_interrupted) {
  if (is_interrupted) return kExitInterrupted;
  if (!record.is_whole || survey::is_foreign(record.heads)) return kExitNoConnection;
  return has_failure(record) ? kExitTagFailed : kExitOk;
}

SurveyPlan plan_of(const HostOptions& options, const SimProcess* simulator) {
  SurveyPlan plan;
  plan.host = simulator != nullptr ? "127.0.0.1" : options.address;
  plan.address = find_controller(plan.host);
  plan.port = simulator != nullptr ? simulator->port() : options.port;
  plan.timeout_ms = std::max<uint32_t>(options.timeout_s, 1) * 1000;
  plan.rate = options.survey.rate;
  plan.is_gentle = options.survey.is_gentle;
  plan.written = options.survey.written;
  plan.hours = options.survey.hours;
  plan.period_ms = options.survey.period_ms;
  return plan;
}

// Of the writes that were asked for, each that is not wholly good, with its reason.
void tell_writes(const SurveyRecord& record) {
  for (const survey::WriteFinding& one : record.writes.findings) {
    if (one.why.empty()) continue;
    show_error("--write " + one.name + (one.is_written ? ": " : ": not written: ") + one.why);
  }
  for (const std::string& variable : record.writes.not_set_back) {
    show_error("NOT SET BACK: " + variable + ". Write it by hand: plc-host write, or at the controller");
  }
}

// What plc-sim says of the names that it refuses is in the survey's report, and one of them is the survey's own.
std::vector<std::string> simulator_arguments(const HostOptions& options) {
  std::vector<std::string> arguments = options.sim_arguments;
  const std::string program = std::filesystem::path(options.simulator).filename();
  const bool is_ours = program.empty() || program == kOwnSimulator;
  const bool is_said = std::find(arguments.begin(), arguments.end(), kQuietSimulator) != arguments.end();
  if (is_ours && !is_said) arguments.insert(arguments.begin(), kQuietSimulator);
  return arguments;
}

int finish_simulator(SimProcess* simulator, int code) {
  if (simulator == nullptr) return code;
  const int simulator_code = simulator->finish();
  for (const std::string& line : simulator->take_lines()) show_simulator_line(line);
  return simulator_code != 0 && code == kExitOk ? kExitSimulator : code;
}

void take_hours(const std::string& text, SurveyOptions& survey) {
  char* end = nullptr;
  const double hours = std::strtod(text.c_str(), &end);
  const bool is_number = !text.empty() && *end == '\0' && hours >= 0 && hours <= kMostHours;
  if (!is_number) throw CLI::ValidationError("--hours " + text + ": give hours, from 0 to 1000, as 8 or 0.5");
  survey.hours = hours;
  survey.has_hours = true;
}

}  // namespace

void add_survey_options(CLI::App& command, HostOptions& options) {
  SurveyOptions& survey = options.survey;
  command.add_option("--tags", survey.tag_files, "Use these tag files, or folders, of the controller")
      ->type_name("FILE");
  command.add_option("--output", survey.folder, "Write report, figures, traffic and profile to this folder")
      ->type_name("FOLDER")
      ->required();
  command.add_flag("--replace", survey.replaces, "Replace the survey that is in the folder");
  command.add_option("--write", survey.written, "Write to this scratch variable too; may be repeated")
      ->type_name("NAME")
      ->allow_extra_args(false);
  command
      .add_option_function<std::string>(
          "--hours", [&survey](const std::string& text) { take_hours(text, survey); },
          "Read all variables again and again for so long; default: not")
      ->type_name("HOURS");
  plc_usage::add_number(command, "--period", survey.period_ms, {10, kLongestPeriodMs, "milliseconds"},
                        "Begin a round of --hours each so many milliseconds")
      ->default_str("1000")
      ->each([&survey](const std::string&) { survey.has_period = true; });
  plc_usage::add_number(command, "--rate", survey.rate, {1, kMostRate}, "Send at most this many requests a second")
      ->default_str("20")
      ->each([&survey](const std::string&) { survey.has_rate = true; });
  command.add_flag("--gentle", survey.is_gentle, "Make fewer connects: no second connections, none closed half");
  const auto of_controller = [](CLI::Option* option) { return option->group("Controller"); };
  of_controller(
      add_setting(command, "address", options, "Connect to this IPv4 address or name, with :PORT if you like"))
      ->type_name("HOST:PORT");
  of_controller(add_setting(command, "port", options, "Connect to this TCP port"));
  CLI::Option* sim = of_controller(
      command.add_option("--sim", options.sim_tag_file, "Start a simulated controller with this tag file"));
  of_controller(command.add_option("--simulator", options.simulator, "Start this simulator instead of plc-sim"))
      ->needs(sim);
  of_controller(
      command.add_option("--sim-arg", options.sim_arguments, "Pass this argument to the simulator; may be repeated"))
      ->needs(sim)
      ->allow_extra_args(false);
  of_controller(add_setting(command, "area", options, "Set the area, the last number of the tag file's name"));
  of_controller(add_setting(command, "timeout", options, "Wait this many seconds for a reply"));
}

void check_survey(const HostOptions& options) {
  const SurveyOptions& survey = options.survey;
  if (survey.folder == "-") {
    throw HostError(kExitUsage, "--output -: a survey has four files: name a folder, or ./- for one of this name");
  }
  if (survey.has_period && survey.hours <= 0) {
    if (survey.has_hours) {
      throw HostError(kExitUsage, "--hours 0 --period " + std::to_string(survey.period_ms) +
                                      ": nothing is read in no time; give --hours a number above 0");
    }
    throw HostError(kExitUsage, "--period is that of --hours: write --hours 2 --period " +
                                    std::to_string(survey.period_ms) + ", or leave it away");
  }
  if (options.address.empty() && options.sim_tag_file.empty()) {
    throw HostError(kExitUsage, "which controller? Give --address HOST, or --sim TAGFILE for a simulated one");
  }
}

int run_survey(const HostOptions& options, CommandOutput& output) {
  std::unique_ptr<SimProcess> simulator;
  if (!options.sim_tag_file.empty()) {
    simulator = std::make_unique<SimProcess>(options.simulator, options.sim_tag_file, simulator_arguments(options));
  }
  const SurveyPlan plan = plan_of(options, simulator.get());
  Target target;
  target.ip_address = plan.address;
  target.tcp_port = plan.port;
  target.area = options.area;
  const std::vector<std::string> tag_files = absolute_files(tag_files_of(options, target));
  const DriverLibrary library = load_driver_library(options.driver);
  Declarations declared;
  for (const std::string& file : tag_files) {
    TagList tags = read_tag_list(library, output, {file, file}, options.verbosity > 0);
    survey::add_declared(declared, std::move(tags), file, area_in_name(std::filesystem::path(file).filename()));
  }
  check_written(plan, declared);
  const SurveyFolder folder(options.survey);
  plc_sim::PcapngWriter capture;
  const plc_sim::PacketMaker::Ends ends{plan.port, INADDR_LOOPBACK, plan.address};
  const std::string program = "plc-host " PLC_HOST_VERSION;
  const std::string problem =
      capture.open(folder.capture_path(), {ends, program, "survey of " + target_text(target)}, tag_files);
  if (!problem.empty()) throw HostError(kExitOutput, "cannot write " + folder.capture_path() + ": " + problem);
  SurveyRecord record;
  record.made = now_text();
  record.version = PLC_HOST_VERSION;
  record.driver_build = library.build;
  record.tag_files = tag_files;
  record.command = survey_command(options, tag_files);
  record.link.host = plan.host;
  record.link.address = plan.address;
  record.link.port = plan.port;
  const bool is_interrupted = survey::make_survey(plan, declared, options, output, capture, record);
  tell_writes(record);
  const bool is_written = folder.take(record, capture, tag_files);
  write_survey_summary(output.results(), record, {folder.path(), is_written}, options.json);
  return finish_simulator(simulator.get(), survey_exit_code(record, is_interrupted));
}

}  // namespace plc_host
