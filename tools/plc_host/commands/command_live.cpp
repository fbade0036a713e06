// The live part of the check command: asks a controller for each name of a tag file, once.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "base/near_names.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "client/driver/failure.h"
#include "client/tags/tag_source.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/settings/use_settings.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/target/tag_files.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kMostWithNearNames = 200;
constexpr char kRefusedName[] = "refused the name";
constexpr char kRefusedRead[] = "refused the read";
constexpr char kScope[] = "scope";  // beside the words for qualities

// A name that has no value, or not for sure its own.
struct LiveFinding {
  size_t position = 0;  // in the tag list
  std::string name;
  std::string state;
  std::string reason;
  std::string advice;
  std::vector<std::string> near;
  bool has_wrong_name = false;  // the controller refused the name itself
  bool is_taken_name = false;   // it took the name, and refused to read it
  bool is_loss = false;         // of the connection
  bool has_value = false;       // the variable counts as answered
};

struct LiveReport {
  size_t names = 0;     // in the file, each once
  size_t answered = 0;  // with a value of their own
  std::vector<LiveFinding> findings;
  std::vector<std::string> accepted;                 // names that the controller took
  std::optional<std::vector<std::string>> programs;  // the controller's
  std::vector<std::string> unanswered;               // asked for when the controller fell silent, or Ctrl-C came
  std::optional<Failure> end;                        // why the others were not asked for
  size_t count(const std::string& state) const {
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(),
                                             [&state](const LiveFinding& finding) { return finding.state == state; }));
  }
  size_t without_value() const {
    return static_cast<size_t>(
        std::count_if(findings.begin(), findings.end(), [](const LiveFinding& finding) { return !finding.has_value; }));
  }
  size_t refused() const { return count(quality_word(Quality::kRefused)); }
  size_t impossible() const { return count(quality_word(Quality::kImpossible)); }
  size_t others() const { return without_value() - refused() - impossible(); }
};

TagResult ask(Host& host, const Tag& tag) {
  TagResult result;
  result.name = tag.qualified_name;
  try {
    result = read_tag(host.session(), last_element(tag));
  } catch (const ReferenceError& error) {
    result.reading = {impossible(error.what()), std::chrono::system_clock::now()};
  }
  return result;
}

// The connection, or the directory of programs behind it, failed before the name was sent.
bool was_not_asked(const TagResult& result) {
  if (result.ok()) return false;
  const Failure& failure = result.reading.failure();
  return failure.code == PLC_NO_CONNECT && failure.connection_lost;
}

// A name that was not sent is asked for again, as long as that is worth it.
TagResult ask_patiently(Host& host, const Tag& tag, Patience& patience) {
  TagResult result = ask(host, tag);
  while (was_not_asked(result) && !result.reading.failure().is_interrupted) {
    patience.take(result.reading);
    if (patience.is_over()) break;
    result = ask(host, tag);
  }
  return result;
}

bool names_no_program(const Tag& tag) { return tag.entry.is_global != 1 && tag.entry.scope_name[0] == '\0'; }

// The driver sends a number with the name of a local variable. Where it finds no program of that scope, or takes
// another one for it, the value may be that of another program's variable.
bool has_foreign_scope(const Tag& tag, const LiveReport& report) {
  if (tag.entry.is_global == 1 || names_no_program(tag) || !report.programs) return false;
  return std::find(report.programs->begin(), report.programs->end(), tag.entry.scope_name) == report.programs->end();
}

// What was refused is no word on the name either: another program was asked.
bool is_of_no_program(const TagResult& result, const Tag& tag, const LiveReport& report) {
  if (!result.ok() && result.reading.failure().lacks_program) return true;
  const bool is_answer = result.ok() || result.reading.quality() == Quality::kRefused;
  return is_answer && has_foreign_scope(tag, report);
}

// The programs are named here, where other commands send the user to this one.
std::string advice_on_program(const LiveFinding& finding, const std::string& advice, const LiveReport& report) {
  if (advice != kProgramAdvice) return advice;
  std::string here = "Correct column 12 of its line";
  if (!finding.near.empty() || !report.programs) return here + ".";
  constexpr size_t kMostPrograms = 8;
  const std::vector<std::string>& programs = *report.programs;
  if (programs.empty()) return here + ": the controller's directory names no program.";
  const size_t shown = std::min(programs.size(), kMostPrograms);
  here += shown == 1 ? "; the controller's program is " : "; the controller's programs are ";
  for (size_t i = 0; i < shown; ++i) here.append(i > 0 ? ", " : "").append(plc_base::told_name(programs[i]));
  return here + (programs.size() > shown ? " and " + std::to_string(programs.size() - shown) + " more." : ".");
}

LiveFinding scope_finding(const TagResult& result, const Tag& tag, const LiveReport& report) {
  const bool is_told = !result.ok() && result.reading.failure().lacks_program;
  const Failure missing = is_told ? result.reading.failure() : missing_program(tag.entry);
  LiveFinding finding;
  finding.name = tag.qualified_name;
  finding.state = kScope;
  finding.reason = missing.reason;
  if (report.programs) finding.near = plc_base::near_names(tag.entry.scope_name, *report.programs);
  finding.advice = advice_on_program(finding, missing.advice, report);
  return finding;
}

LiveFinding number_finding(const Tag& tag) {
  LiveFinding finding;
  finding.name = tag.qualified_name;
  finding.state = kScope;
  finding.has_value = true;
  finding.reason = "a local variable without a program: it goes by the number " +
                   std::to_string(tag.entry.local_index) + " of column 11, whosever that is";
  finding.advice = "Write the program's name in column 12 of its line, or make the variable global.";
  return finding;
}

void end_report(const TagResult& result, LiveReport& report) {
  report.end = result.reading.failure();
  if (!was_not_asked(result)) report.unanswered.push_back(result.name);
}

// What is known of a name that has no value.
LiveFinding finding_on(const TagResult& result, const Tag& tag) {
  const Failure& failure = result.reading.failure();
  LiveFinding finding;
  finding.name = result.name;
  finding.is_loss = failure.connection_lost;
  finding.state = quality_word(failure.quality);
  finding.reason = failure.reason;
  finding.has_wrong_name = failure.reason.find(kRefusedName) != std::string::npos;
  if (!finding.has_wrong_name) finding.advice = failure.advice;
  const size_t read = failure.reason.find(kRefusedRead);
  finding.is_taken_name = failure.quality == Quality::kRefused && read != std::string::npos;
  if (finding.is_taken_name) {
    finding.reason.replace(read, sizeof kRefusedRead - 1,
                           "took the name and refused to read it as " + declared_type(tag.entry));
  }
  if (tag.entry.bit_width == 8 && failure.quality == Quality::kIncomplete) {
    finding.state = quality_word(Quality::kImpossible);
    finding.reason = "the driver transfers no 8-bit values";
    finding.advice.clear();
  }
  return finding;
}

// False once the controller does not answer any more.
bool take_result(const TagResult& result, const Tag& tag, Patience& patience, LiveReport& report) {
  if (is_of_no_program(result, tag, report)) {
    report.findings.push_back(scope_finding(result, tag, report));
    return true;
  }
  if (result.ok()) {
    patience.take(result.reading);
    ++report.answered;
    report.accepted.push_back(tag.qualified_name);
    if (names_no_program(tag)) report.findings.push_back(number_finding(tag));
    return true;
  }
  const Failure& failure = result.reading.failure();
  if (failure.is_interrupted) {
    end_report(result, report);
    return false;
  }
  patience.take(result.reading);
  if (patience.is_over()) {
    // What broke off before is the same failure.
    while (!report.findings.empty() && report.findings.back().is_loss) {
      report.unanswered.insert(report.unanswered.begin(), report.findings.back().name);
      report.findings.pop_back();
    }
    end_report(result, report);
    return false;
  }
  report.findings.push_back(finding_on(result, tag));
  return true;
}

// For the first of them alone: each is compared with all names. Where the controller refuses the names that it does not
// have, one that it took is no slip.
void find_near_names(const std::vector<Tag>& tags, LiveReport& report) {
  const bool refuses_names = std::any_of(report.findings.begin(), report.findings.end(),
                                         [](const LiveFinding& finding) { return finding.has_wrong_name; });
  size_t left = kMostWithNearNames;
  for (LiveFinding& finding : report.findings) {
    const bool may_be_slip = finding.has_wrong_name || (finding.is_taken_name && !refuses_names);
    if (!may_be_slip || left == 0) continue;
    finding.near = plc_base::near_names(tags[finding.position].qualified_name, report.accepted);
    --left;
  }
}

void take_programs(const RelayRoute& route, LiveReport& report) {
  if (route.relay() == nullptr) return;
  const std::optional<std::vector<std::string>> programs = take_program_names(*route.relay());
  if (programs) report.programs = programs;
}

// A line of a terminal that says how far it is, and goes with the object.
class Progress {
 public:
  Progress(size_t all, bool is_wanted) : all_(all), is_shown_(is_wanted && isatty(STDERR_FILENO) == 1) {}
  ~Progress() {
    if (is_shown_) show("");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void take(size_t asked) {
    const Clock::time_point now = Clock::now();
    if (!is_shown_ || now < next_) return;
    next_ = now + kProgressTime;
    show("plc-host: " + std::to_string(asked) + " of " + plc_base::plural(all_, "name") + " asked for");
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kProgressTime{200};

  static void show(const std::string& text) { std::fputs(("\r\033[K" + text).c_str(), stderr); }

  size_t all_;
  bool is_shown_;
  Clock::time_point next_;
};

LiveReport ask_for_all(Host& host, const RelayRoute& route, Progress& progress) {
  LiveReport report;
  std::set<std::string> asked;
  Patience patience;
  const std::vector<Tag>& tags = host.tags().tags;
  for (size_t i = 0; i < tags.size(); ++i) {
    if (!asked.insert(tags[i].qualified_name).second) continue;
    ++report.names;
    if (!report.end && stop_requested()) report.end = not_read(kInterruptedWord);
    if (report.end) continue;
    const TagResult result = ask_patiently(host, tags[i], patience);
    progress.take(report.names);
    take_programs(route, report);
    const size_t before = report.findings.size();
    if (take_result(result, tags[i], patience, report) && report.findings.size() > before) {
      report.findings.back().position = i;
    }
  }
  find_near_names(tags, report);
  return report;
}

const char* severity_word(const LiveFinding& finding) {
  return finding.has_value || finding.state == quality_word(Quality::kImpossible) ? "warning" : "error";
}

void write_findings(const Host& host, const LiveReport& report, bool json) {
  const std::vector<uint32_t> lines = TagSource(host.tag_file().read).lines_of(host.tags());
  const std::string& file = host.tag_file().shown;
  for (const LiveFinding& finding : report.findings) {
    const uint32_t line = lines[finding.position];
    if (json) {
      Json object{{"file", file},         {"line", line},           {"severity", severity_word(finding)},
                  {"name", finding.name}, {"state", finding.state}, {"reason", finding.reason},
                  {"near", finding.near}};
      if (!finding.advice.empty()) object["try"] = finding.advice;
      write_json_line(host.results(), object);
      continue;
    }
    std::string text = file + ":" + std::to_string(line);
    for (const std::string& part :
         {std::string(severity_word(finding)), plc_base::told_name(finding.name), finding.reason}) {
      text.append(": ").append(part);
    }
    const bool is_question = !finding.near.empty();
    if (is_question) text.append("; did you mean ").append(plc_base::joined_with_or(finding.near)) += "?";
    if (!finding.advice.empty()) text.append(is_question ? " Try: " : ". Try: ").append(finding.advice);
    std::fputs((plc_base::shown_line(text) + "\n").c_str(), host.results());
  }
}

// What came of the names that were asked for last.
const char* end_words(const Failure& end) {
  if (end.is_interrupted) return "interrupted while asking for ";
  return end.quality == Quality::kForeign ? "no valid reply for " : "no answer for ";
}

void write_summary(Host& host, const LiveReport& report, bool json) {
  const std::string controller = target_text(host.session().target());
  const size_t left = report.names - report.answered - report.without_value() - report.unanswered.size();
  if (json) {
    write_json_line(host.results(), Json{{"file", host.tag_file().shown},
                                         {"live",
                                          {{"controller", controller},
                                           {"names", report.names},
                                           {"answered", report.answered},
                                           {"refused", report.refused()},
                                           {"failed", report.others()},
                                           {"impossible", report.impossible()},
                                           {"unanswered", report.unanswered},
                                           {"not_asked", left}}}});
    return;
  }
  std::string text = host.tag_file().shown + ": " + plc_base::plural(report.names, "name") + ", " + controller +
                     " has given " + plc_base::plural(report.answered, "value") + ", refused " +
                     std::to_string(report.refused());
  if (report.others() > 0) text += ", failed for " + std::to_string(report.others());
  if (report.impossible() > 0) text += "; " + std::to_string(report.impossible()) + " cannot be asked for";
  if (!report.unanswered.empty()) {
    text.append("; ").append(end_words(*report.end)) += plc_base::joined_with_or(report.unanswered);
  }
  if (left > 0) text += "; " + std::to_string(left) + " not asked for";
  std::fputs((plc_base::shown_line(text) + "\n").c_str(), host.results());
}

HostOptions live_options(const HostOptions& options) {
  HostOptions live = options;
  live.tag_file.clear();
  if (!options.address.empty()) live.given["address"] = options.address;
  // What there is to tell of a profile was told when the command began.
  live.quiet = true;
  use_settings(live, true);
  live.quiet = options.quiet;
  live.tag_file = options.checked_files.front();
  return live;
}

// Says what the report leaves open.
int live_code(const LiveReport& report, const RelayRoute& route, const Host& host, const HostOptions& options) {
  if (report.end && stop_requested()) {
    show_error("interrupted: the names without a result were not checked");
    return kExitInterrupted;
  }
  const bool can_driver_tell = host.library().load_tags != nullptr;
  if (!report.end && !report.programs && !can_driver_tell && !options.quiet) {
    show_message(target_text(route.controller()) + ": its programs are not known: scopes are not compared with them");
  }
  if (report.end) {
    // Where no name was sent, no line of the file is to blame.
    const std::string controller = target_text(route.controller());
    std::string subject = report.unanswered.empty() ? "" : plc_base::told_name(report.unanswered.back()) + ": ";
    if (subject.empty() && report.end->reason.find(controller) == std::string::npos) subject = controller + ": ";
    show_error(subject + report.end->reason + (report.end->advice.empty() ? "" : ". Try: " + report.end->advice));
    return kExitNoConnection;
  }
  if (report.names > 0 && report.impossible() == report.names) {
    show_error(target_text(route.controller()) + ": not asked: the driver can ask for none of the names");
    return kExitTagFailed;
  }
  return report.refused() + report.others() == 0 ? kExitOk : kExitTagFailed;
}

// The file's own name may say another area than the one that is asked for.
void tell_other_area(const HostOptions& options, const Target& controller, const std::string& file) {
  const Setting& asked = options.settings.at("area");
  const std::optional<uint16_t> named = area_in_name(file.substr(file.rfind('/') + 1));
  if (options.quiet || !asked.is_said() || !named || *named == controller.area) return;
  show_message(plc_base::told_name(file) + " is named like a tag file of area " + std::to_string(*named) + ", " +
               asked.from + " says " + std::to_string(controller.area) + ". A panel takes " +
               tag_file_name(controller) + " for area " + std::to_string(controller.area) + ". Try: --area " +
               std::to_string(*named) + ", or rename the file");
}

}  // namespace

void demand_live(const HostOptions& options) {
  const HostOptions live = live_options(options);
  if (load_driver_library(live.driver).is_guarded) return;
  const Setting& driver = live.settings.at("driver");
  const std::string chosen =
      driver.is_said() ? driver.from + " chose " + plc_base::told_name(driver.value) + ". Try: --driver guarded"
                       : "no guarded build was found. Try: --driver PATH with the path of one";
  throw HostError(kExitLibrary,
                  "--live needs the guarded build: the contract build takes refusals for values; " + chosen);
}

int check_live(const HostOptions& options, CommandOutput& output) {
  const HostOptions live = live_options(options);
  RelayRoute route;
  Host host(live, output, [&route](const Target& controller) { return route.choose(controller); });
  if (const std::string hint = hint_on_types(host.tags(), host.tag_file().shown); !hint.empty()) {
    throw HostError(kExitTagFailed, "--live asks for nothing: " + host.tag_file().shown + hint);
  }
  tell_other_area(live, route.controller(), host.tag_file().shown);
  LiveReport report;
  {
    // The driver's lines would stand in its line.
    Progress progress(host.tags().tags.size(), !options.quiet && options.verbosity == 0);
    report = ask_for_all(host, route, progress);
  }
  write_findings(host, report, options.json);
  write_summary(host, report, options.json);
  return host.finish(live_code(report, route, host, options));
}

}  // namespace plc_host
