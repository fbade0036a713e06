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

#include "base/shown_text.h"
#include "base/text.h"
#include "profile/profile_file.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/setting_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/sim_process.h"
#include "tools/plc_host/survey/recommend.h"
#include "tools/plc_host/survey_report/survey_report.h"
#include "tools/plc_host/survey_steps/scratch.h"
#include "tools/plc_host/survey_steps/survey.h"
#include "tools/plc_host/target/controller_address.h"
#include "tools/plc_host/target/tag_files.h"
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
constexpr char kSurveyCapture[] = "survey.pcapng";
constexpr char kSurveyProfile[] = "profile.toml";
constexpr const char* kFiles[] = {"report.html", "report.json", kSurveyCapture, kSurveyProfile};

std::string now_text() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  gmtime_r(&now, &parts);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

bool is_survey_file(const std::string& name) {
  return std::find(std::begin(kFiles), std::end(kFiles), name) != std::end(kFiles);
}

[[noreturn]] void refuse_folder(const std::string& folder, const std::string& reason) {
  throw HostError(kExitOutput, "--output " + folder + ": " + reason);
}

// Made where it is missing. Nothing in it is written over but a former survey, and that when it was said.
std::string prepare_folder(const SurveyOptions& options) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::absolute(options.folder).lexically_normal();
  std::error_code error;
  const fs::file_status status = fs::status(folder, error);
  if (!fs::exists(status)) {
    if (!fs::create_directory(folder, error) || error) refuse_folder(options.folder, error.message());
    return folder;
  }
  if (!fs::is_directory(status)) refuse_folder(options.folder, "it is not a folder");
  fs::directory_iterator files(folder, error);
  if (error) refuse_folder(options.folder, error.message());
  for (const fs::directory_entry& entry : files) {
    const std::string name = entry.path().filename();
    if (!is_survey_file(name)) {
      refuse_folder(options.folder, "it holds " + name + ", which is no survey's: name another folder");
    }
    if (!options.replaces) {
      refuse_folder(options.folder, "it holds a survey: name another folder, or --replace");
    }
  }
  return folder;
}

std::vector<std::string> tag_files_of(const HostOptions& options, const Target& target) {
  if (!options.survey.tag_files.empty()) return options.survey.tag_files;
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

void check_written(const SurveyPlan& plan, const Declarations& declared) {
  for (const std::string& name : plan.written) {
    try {
      survey::scratch_of(declared, name);
    } catch (const ReferenceError& error) {
      throw HostError(kExitUsage, "--write " + name + ": " + error.what());
    }
  }
}

std::string command_text(const HostOptions& options, const std::vector<std::string>& tag_files) {
  const SurveyOptions& survey = options.survey;
  std::string text = "plc-host survey";
  if (!options.address.empty()) text += " --address " + options.address + ":" + std::to_string(options.port);
  for (const std::string& file : tag_files) text.append(" --tags ").append(file);
  text += " --output " + survey.folder + " --rate " + std::to_string(survey.rate);
  for (const std::string& name : survey.written) text.append(" --write ").append(name);
  if (survey.hours > 0) {
    text += " --hours " + Json(survey.hours).dump() + " --period " + std::to_string(survey.period_ms);
  }
  if (survey.is_gentle) text += " --gentle";
  return text;
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

void write_survey_summary(FILE* results, const SurveyRecord& record, const std::string& folder, bool json) {
  const uint64_t good = count_of_state(record, survey::VariableFinding::State::kGood);
  const uint64_t refused = count_of_state(record, survey::VariableFinding::State::kRefused);
  const uint64_t not_tried = count_of_state(record, survey::VariableFinding::State::kNotTried);
  const uint64_t all = record.variables.findings.size();
  const std::string controller = record.link.host + ":" + std::to_string(record.link.port);
  if (json) {
    Json line = {{"controller", controller},
                 {"variables", all},
                 {"good", good},
                 {"refused", refused},
                 {"guarded", usable_word(record.verdict.usable)},
                 {"whole", record.is_whole},
                 {"not_set_back", record.writes.not_set_back},
                 {"folder", folder}};
    if (!record.is_whole) line["ended"] = record.ended;
    return write_json_line(results, line);
  }
  std::string text = controller + ": " + plc_base::plural(all, "variable") + ", " + std::to_string(good) + " read, " +
                     std::to_string(refused) + " refused";
  const uint64_t others = all - good - refused - not_tried;
  if (others > 0) text += ", " + std::to_string(others) + " otherwise: see the report";
  if (not_tried > 0) text += ", " + std::to_string(not_tried) + " not tried";
  text.append("\nguarded build: ").append(usable_word(record.verdict.usable));
  if (survey::is_foreign(record.heads)) text.append(": ").append(survey::kForeign);
  text += "\n";
  for (const survey::Recommendation& one : record.recommendations) {
    text.append("set ").append(one.setting).append(": ").append(one.value).append("\n");
  }
  if (!record.is_whole) text += "not whole: " + record.ended + "\n";
  text += "written: " + folder + "/report.html, report.json, survey.pcapng, profile.toml\n";
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
  const auto is_lost = [](const survey::WriteFinding& finding) { return !finding.read_back || !finding.set_back; };
  return std::any_of(record.variables.findings.begin(), record.variables.findings.end(), is_bad) ||
         std::any_of(record.writes.findings.begin(), record.writes.findings.end(), is_lost);
}

int survey_exit_code(const SurveyRecord& record, bool is_interrupted) {
  if (is_interrupted) return kExitInterrupted;
  if (!record.is_whole || survey::is_foreign(record.heads)) return kExitNoConnection;
  return has_failure(record) ? kExitTagFailed : kExitOk;
}

// Each of them as far as it can be, and what went wrong of all.
void write_files(const SurveyRecord& record, const std::string& folder, plc_sim::PcapngWriter& capture,
                 const std::vector<std::string>& tag_files) {
  std::string problems;
  const auto add = [&problems](const std::string& name, const std::string& problem) {
    if (problem.empty()) return;
    problems.append(problems.empty() ? "" : "; ").append(name).append(name.empty() ? "" : ": ").append(problem);
  };
  add(kSurveyCapture, capture.close());
  add("", survey::write_reports(record, folder));
  add(kSurveyProfile,
      plc_profile::write_profile(folder + "/" + kSurveyProfile, survey::make_profile(record), tag_files));
  if (!problems.empty()) throw HostError(kExitOutput, "cannot write into " + folder + ": " + problems);
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

void tell_not_set_back(const SurveyRecord& record) {
  for (const std::string& variable : record.writes.not_set_back) {
    show_error("NOT SET BACK: " + variable + ". Write it by hand: plc-host write, or at the controller");
  }
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
}

}  // namespace

void add_survey_options(CLI::App& command, HostOptions& options) {
  SurveyOptions& survey = options.survey;
  command.add_option("--tags", survey.tag_files, "Use these tag files of the controller")->type_name("FILE");
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
      ->default_str("1000");
  plc_usage::add_number(command, "--rate", survey.rate, {1, kMostRate}, "Send at most this many requests a second")
      ->default_str("20");
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
  if (options.address.empty() && options.sim_tag_file.empty()) {
    throw HostError(kExitUsage, "which controller? Give --address HOST, or --sim TAGFILE for a simulated one");
  }
}

int run_survey(const HostOptions& options, CommandOutput& output) {
  std::unique_ptr<SimProcess> simulator;
  if (!options.sim_tag_file.empty()) {
    simulator = std::make_unique<SimProcess>(options.simulator, options.sim_tag_file, options.sim_arguments);
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
    survey::add_declared(declared, read_tag_list(library, output, {file, file}, options.verbosity > 0), file);
  }
  check_written(plan, declared);
  const std::string folder = prepare_folder(options.survey);
  plc_sim::PcapngWriter capture;
  const plc_sim::PacketMaker::Ends ends{plan.port, INADDR_LOOPBACK, plan.address};
  const std::string program = "plc-host " PLC_HOST_VERSION;
  const std::string problem =
      capture.open(folder + "/" + kSurveyCapture, {ends, program, "survey of " + target_text(target)}, tag_files);
  if (!problem.empty()) throw HostError(kExitOutput, "cannot write " + folder + "/" + kSurveyCapture + ": " + problem);
  SurveyRecord record;
  record.made = now_text();
  record.version = PLC_HOST_VERSION;
  record.driver_build = library.build;
  record.tag_files = tag_files;
  record.command = command_text(options, tag_files);
  record.link.host = plan.host;
  record.link.address = plan.address;
  record.link.port = plan.port;
  const bool is_interrupted = survey::make_survey(plan, declared, options, output, capture, record);
  tell_not_set_back(record);
  write_files(record, folder, capture, tag_files);
  write_survey_summary(output.results(), record, folder, options.json);
  return finish_simulator(simulator.get(), survey_exit_code(record, is_interrupted));
}

}  // namespace plc_host
