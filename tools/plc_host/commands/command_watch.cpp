// The watch command: reads again and again, and lives through a controller that goes away and comes back.
#include <algorithm>
#include <filesystem>

#include "base/text.h"
#include "client/plan/batch_transfer.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/form_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/watch/chart.h"
#include "tools/plc_host/watch/watch_output.h"
#include "tools/plc_host/watch_log/change_log.h"
#include "tools/plc_host/written_file.h"

namespace plc_host {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::chrono::seconds kBetweenDrawings{1};  // while nothing is read: ages go on

// A watch may last for weeks: nobody would see that one of its variables was never there. All of them are told at once.
void demand_known(const std::vector<std::string>& unknown, size_t known) {
  if (unknown.empty()) return;
  if (unknown.size() + known == 1) throw HostError(kExitTagFailed, unknown.front());
  for (const std::string& reason : unknown) show_error(reason);
  throw HostError(kExitTagFailed, "nothing is watched: " + std::to_string(unknown.size()) + " of " +
                                      plc_base::plural(unknown.size() + known, "variable") + " cannot be read");
}

// The profile knows that the controller refuses it: that is no misspelt name, and the others can be watched.
bool is_absent(const TagResult& entry) { return entry.reading.failure().reason == kAbsentWords; }

std::vector<TagReference> watched_references(const HostOptions& options, const Host& host) {
  std::vector<TagReference> references;
  std::vector<std::string> unknown;
  for (const TagResult& entry : look_up_names(options, host)) {
    if (entry.is_found()) {
      references.push_back(entry.reference);
      continue;
    }
    const std::string reason = plc_base::told_name(entry.name) + ": " + entry.reading.failure().reason;
    const bool is_asked_for =
        !is_absent(entry) && std::find(options.names.begin(), options.names.end(), entry.name) != options.names.end();
    if (is_asked_for) {
      unknown.push_back(reason);
    } else {
      show_message(reason + "; not watched");
    }
  }
  demand_known(unknown, references.size());
  if (references.empty()) throw HostError(kExitTagFailed, "there is nothing to watch");
  if (options.raw && references.size() > 1) {
    throw HostError(kExitUsage, "--raw watches one variable: with more nobody knows whose value a line has");
  }
  return references;
}

// Position of the variable that the chart shows.
size_t charted_row(const std::vector<TagReference>& references, const Host& host, const std::string& name) {
  TagReference charted;
  try {
    charted = find_variable(host.tags(), host.tag_file(), name);
  } catch (const ReferenceError& error) {
    throw HostError(kExitTagFailed, plc_base::told_name(name) + ": " + error.what());
  }
  const ValueKind kind = value_kind(charted.tag->entry);
  if (!charted.extents.empty() || kind == ValueKind::kText || kind == ValueKind::kRaw) {
    throw HostError(kExitUsage, "--chart takes a single number: " + name + " is none");
  }
  const auto found = std::find_if(references.begin(), references.end(),
                                  [&charted](const TagReference& reference) { return reference.text == charted.text; });
  if (found == references.end()) throw HostError(kExitUsage, "--chart takes one of the watched variables");
  return static_cast<size_t>(found - references.begin());
}

// The log with its file.
struct OpenedLog {
  OpenedLog(const LogFileRules& rules, const LogFile::Tell& tell) : file(rules, tell) {}

  LogFile file;
  std::unique_ptr<ChangeLog> rows;
};

class Watch {
 public:
  Watch(const HostOptions& options, CommandOutput& output);
  int run();

 private:
  void open_log();
  std::vector<TagResult> read_round();
  void wait_until(SteadyClock::time_point next);
  void take_round(const std::vector<TagResult>& results, SteadyClock::time_point began);
  int finish_log(int code);

  const HostOptions& options_;
  const std::string log_path_;  // from the folder that the user is in: the host goes to one of its own
  Host host_;
  std::vector<TagReference> references_;
  WatchState state_;
  size_t charted_row_ = 0;
  std::unique_ptr<Chart> chart_;
  std::unique_ptr<WatchOutput> shown_;
  std::unique_ptr<OpenedLog> log_;
  std::vector<TagResult> latest_;
};

Watch::Watch(const HostOptions& options, CommandOutput& output)
    : options_(options),
      log_path_(options.log.file.empty() ? "" : std::filesystem::absolute(options.log.file).string()),
      host_(options, output),
      references_(watched_references(options, host_)),
      state_(references_) {
  if (!options.chart.empty()) {
    charted_row_ = charted_row(references_, host_, options.chart);
    chart_ = std::make_unique<Chart>(references_[charted_row_].text);
  }
  open_log();
  shown_ = make_watch_output(host_.result_file(), form_of(options), chart_.get());
  host_.session().set_line_sink([this](const std::string& line) {
    if (options_.verbosity > 0 && state_.is_new_line(line)) shown_->show_line("driver: " + line);
  });
  host_.session().add_observer(
      [this](const CallResult&) { shown_->between_calls(std::chrono::milliseconds(options_.delay_ms)); });
}

void Watch::open_log() {
  if (options_.log.file.empty()) return;
  const LogFile::Tell tell = [this](const std::string& text) {
    const std::string line = "plc-host: " + text;
    if (shown_) return shown_->show_line(line);
    show_plain_line(line);
  };
  LogFileRules rules;
  rules.path = log_path_;
  rules.heading = kLogHeading;
  rules.most_bytes = options_.log.most_bytes;
  rules.daily = options_.log.daily;
  rules.kept = options_.log.kept;
  rules.inputs = with_settings_files({host_.tag_file().read}, options_.settings);
  rules.output = host_.result_file().descriptor();
  log_ = std::make_unique<OpenedLog>(rules, tell);
  const std::string problem = log_->file.open();
  if (!problem.empty()) throw unwritten(options_.log.file, problem);
  log_->rows = std::make_unique<ChangeLog>(log_->file, ChangeLogRules{options_.log.deadband, options_.log.every_round},
                                           references_, tell);
  log_->rows->begin(plc_base::plural(references_.size(), "variable") + " of " + target_text(host_.session().target()) +
                        ", every " + std::to_string(options_.interval_ms) + " ms",
                    std::chrono::system_clock::now());
}

int Watch::finish_log(int code) {
  if (!log_) return code;
  log_->rows->end(std::chrono::system_clock::now());
  if (log_->rows->dropped() == 0) return code;
  show_error(plc_base::plural(log_->rows->dropped(), "row") + " could not be written to " + options_.log.file);
  return kExitOutput;
}

void Watch::take_round(const std::vector<TagResult>& results, SteadyClock::time_point began) {
  const RoundOutcome outcome = state_.take_round(results, began, SteadyClock::now());
  const std::string controller = target_text(host_.session().target());
  if (outcome.contact) shown_->show_line("plc-host: " + contact_text(outcome, controller));
  if (chart_) {
    const TagEntry& entry = references_[charted_row_].tag->entry;
    const TagValue* value = results[charted_row_].reading.value();
    chart_->add(value != nullptr ? std::optional<double>(element_number(entry, value->elements.at(0))) : std::nullopt);
  }
  shown_->show_round(state_, outcome);
  if (log_) log_->rows->take_round(state_, outcome, std::chrono::system_clock::now());
  latest_ = results;
}

std::vector<TagResult> Watch::read_round() {
  std::vector<TagResult> results;
  results.reserve(references_.size());
  for (const TagReference& reference : references_) results.push_back(unread(reference));
  const auto stop = [this] {
    shown_->between_calls(std::chrono::milliseconds(options_.delay_ms));
    return stop_requested();
  };
  shown_->begin_round();
  if (options_.batch) {
    read_tags_batched(host_.session(), results, stop);
  } else {
    read_tags(host_.session(), results, stop, [](const TagResult&) {});
  }
  shown_->end_round();
  return results;
}

// Takes the keys that were pressed, also where there is no time until the next round.
void Watch::wait_until(SteadyClock::time_point next) {
  for (bool is_over = false; !is_over && !stop_requested();) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - SteadyClock::now());
    const std::chrono::milliseconds time = std::min<std::chrono::milliseconds>(left, kBetweenDrawings);
    if (wait_for_input(time, shown_->keys())) {
      shown_->take_keys(state_);
    } else if (left > time) {
      shown_->show_again(state_);
    }
    is_over = SteadyClock::now() >= next;
  }
}

int Watch::run() {
  shown_->begin(state_);
  const std::chrono::milliseconds interval(options_.interval_ms);
  SteadyClock::time_point next = SteadyClock::now();
  // A reader who has gone, or a full disk, ends it.
  for (uint64_t round = 1; !stop_requested() && host_.result_file().flush(); ++round) {
    const SteadyClock::time_point began = SteadyClock::now();
    const std::vector<TagResult> results = read_round();
    host_.show_simulator_lines();
    // A round that Ctrl-C cut short shows failures that are none.
    if (stop_requested()) break;
    take_round(results, began);
    if (!host_.result_file().flush() || round == options_.rounds) break;
    next = std::max(next + interval, SteadyClock::now());
    wait_until(next);
  }
  shown_->end(state_, host_.session().figures());
  shown_.reset();
  return finish_log(host_.finish(stop_requested() ? kExitOk : exit_code_of(latest_, false)));
}

}  // namespace

int run_watch(const HostOptions& options, CommandOutput& output) { return Watch(options, output).run(); }

}  // namespace plc_host
