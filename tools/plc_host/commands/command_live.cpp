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
constexpr char kScope[] = "scope";  // beside the words for qualities

// A name that has no value, or not for sure its own.
struct LiveFinding {
  size_t position = 0;  // in the tag list
  std::string name;
  std::string state;
  std::string reason;
  std::string advice;  // where the name is right
  std::vector<std::string> near;
  bool has_wrong_name = false;  // the controller refused the name itself
  bool is_loss = false;         // of the connection
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
  size_t refused() const { return count(quality_word(Quality::kRefused)); }
  size_t impossible() const { return count(quality_word(Quality::kImpossible)); }
  size_t others() const { return findings.size() - refused() - impossible(); }
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

// The driver sends a number with the name of a local variable. Where it finds no program of that scope, or takes
// another one for it, the value may be that of another program's variable.
bool has_foreign_scope(const Tag& tag, const LiveReport& report) {
  if (tag.entry.is_global == 1 || !report.programs) return false;
  return std::find(report.programs->begin(), report.programs->end(), tag.entry.scope_name) == report.programs->end();
}

// What was refused is no word on the name either: another program was asked.
bool is_of_no_program(const TagResult& result, const Tag& tag, const LiveReport& report) {
  if (!result.ok() && result.reading.failure().lacks_program) return true;
  const bool is_answer = result.ok() || result.reading.quality() == Quality::kRefused;
  return is_answer && has_foreign_scope(tag, report);
}

LiveFinding scope_finding(const Tag& tag, const LiveReport& report) {
  LiveFinding finding;
  finding.name = tag.qualified_name;
  finding.state = kScope;
  finding.reason = missing_program(tag.entry).reason;
  if (report.programs) finding.near = plc_base::near_names(tag.entry.scope_name, *report.programs);
  return finding;
}

// Without a connection the name was not asked for.
void end_report(const TagResult& result, LiveReport& report) {
  report.end = result.reading.failure();
  if (report.end->code == PLC_FAILED) report.unanswered.push_back(result.name);
}

// False once the controller does not answer any more.
bool take_result(const TagResult& result, const Tag& tag, Patience& patience, LiveReport& report) {
  if (is_of_no_program(result, tag, report)) {
    report.findings.push_back(scope_finding(tag, report));
    return true;
  }
  if (result.ok()) {
    ++report.answered;
    report.accepted.push_back(tag.qualified_name);
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
  LiveFinding finding;
  finding.name = result.name;
  finding.is_loss = failure.connection_lost;
  finding.state = quality_word(failure.quality);
  finding.reason = failure.reason;
  finding.has_wrong_name = failure.reason.find(kRefusedName) != std::string::npos;
  const bool has_wrong_type = failure.quality == Quality::kRefused && !finding.has_wrong_name;
  if (has_wrong_type) finding.advice = failure.advice;
  const bool is_known_limit = tag.entry.bit_width == 8 && failure.quality == Quality::kIncomplete;
  if (is_known_limit) finding.state = quality_word(Quality::kImpossible);
  if (is_known_limit) finding.reason = "the driver transfers no 8-bit values";
  report.findings.push_back(finding);
  return true;
}

// For the first of them alone: each is compared with all names.
void find_near_names(const std::vector<Tag>& tags, LiveReport& report) {
  size_t left = kMostWithNearNames;
  for (LiveFinding& finding : report.findings) {
    if (!finding.has_wrong_name || left == 0) continue;
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
    const TagResult result = ask(host, tags[i]);
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
  return finding.state == quality_word(Quality::kImpossible) ? "warning" : "error";
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
    const std::string near =
        finding.near.empty() ? "" : "; did you mean " + plc_base::joined_with_or(finding.near) + "?";
    std::string text = file + ":" + std::to_string(line);
    for (const std::string& part : {std::string(severity_word(finding)), finding.name, finding.reason}) {
      text.append(": ").append(part);
    }
    text += near;
    if (!finding.advice.empty()) text.append(". Try: ").append(finding.advice);
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
  const size_t left = report.names - report.answered - report.findings.size() - report.unanswered.size();
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
    const std::string name = report.unanswered.empty() ? "" : plc_base::told_name(report.unanswered.back()) + ": ";
    show_error(name + report.end->reason + (report.end->advice.empty() ? "" : ". Try: " + report.end->advice));
    return kExitNoConnection;
  }
  return report.refused() + report.others() == 0 ? kExitOk : kExitTagFailed;
}

}  // namespace

int check_live(const HostOptions& options, CommandOutput& output) {
  const HostOptions live = live_options(options);
  RelayRoute route;
  Host host(live, output, [&route](const Target& controller) { return route.choose(controller); });
  if (!host.session().is_guarded()) {
    throw HostError(kExitLibrary, "--live needs the guarded build: the contract build takes refusals for values");
  }
  if (const std::string hint = hint_on_types(host.tags(), host.tag_file().shown); !hint.empty()) {
    throw HostError(kExitTagFailed, "--live asks for nothing: " + host.tag_file().shown + hint);
  }
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
