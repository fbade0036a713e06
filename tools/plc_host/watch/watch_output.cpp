// Shows rounds in the form that was asked for.
#include "tools/plc_host/watch/watch_output.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "base/shown_text.h"
#include "base/text.h"
#include "client/values/time_text.h"
#include "client/values/utf8_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/colors.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/results/result_json.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/watch/attendant.h"
#include "tools/plc_host/watch/screen_view.h"
#include "tools/plc_host/watch/watch_screen.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;
using plc_base::shown_csv_cell;

constexpr size_t kChartRows = 8;
constexpr size_t kLeastTable = 4;                                // heading, a row, its place, status
constexpr size_t kRowsWithChart = kLeastTable + kChartRows + 2;  // its title, and the cursor below all
constexpr std::chrono::seconds kLongCall{1};                     // from then on the values count as old
constexpr size_t kMostNames = 3;                                 // of a reason, where no variable has a value
constexpr size_t kChartColumns = 80;                             // where no terminal tells its width

double milliseconds(std::chrono::nanoseconds time) { return std::chrono::duration<double, std::milli>(time).count(); }

// Shortest, mean and longest, in milliseconds; nothing when no call succeeded.
std::optional<std::array<double, 3>> round_trips(const CallFigures& figures) {
  const uint64_t succeeded = figures.calls - figures.failures;
  if (succeeded == 0) return std::nullopt;
  const double mean = milliseconds(figures.total) / static_cast<double>(succeeded);
  return std::array<double, 3>{milliseconds(figures.shortest), mean, milliseconds(figures.longest)};
}

const char* event_word(const RoundOutcome& outcome) {
  if (*outcome.contact == Contact::kSilent) return "lost";
  if (*outcome.contact == Contact::kNoValues) return "no-values";
  return outcome.contact_before == Contact::kSilent ? "back" : "values";
}

std::string failure_line(const TagResult& result) {
  const Failure& failure = result.reading.failure();
  return "plc-host: " + plc_base::told_name(result.name) + ": " + failure.reason +
         (failure.advice.empty() ? "" : ". Try: " + failure.advice);
}

// A line per change.
class LineOutput : public WatchOutput {
 public:
  LineOutput(FILE* file, const Chart* chart) : file_(file), chart_(chart) {}
  void begin(const WatchState&) override {}
  void show_round(const WatchState& state, const RoundOutcome& outcome) override {
    for (const size_t row : outcome.changed) std::fputs(line_of(state.rows()[row]).c_str(), file_);
    std::fflush(file_);
    for (const size_t row : outcome.failed) show_line(failure_line(state.rows()[row].latest));
  }
  void show_line(const std::string& line) override { show_plain_line(line); }
  void end(const WatchState&, const CallFigures& figures) override {
    if (chart_ != nullptr) {
      for (const std::string& line : chart_->draw(kChartColumns, kChartRows)) std::fputs((line + "\n").c_str(), file_);
    }
    std::fflush(file_);
    show_line("plc-host: " + summary_text(figures));
  }

 private:
  // "08:30:00.123 good Speed = 12", "08:30:00.123 lost Speed: REASON"
  static std::string line_of(const WatchRow& row) {
    const Reading& reading = row.latest.reading;
    const std::string start = local_time_text(reading.time()) + " " + quality_word(reading.quality()) + " " +
                              plc_base::shown_first(row.latest.name);
    const std::string text = row.latest.ok() ? " = " + row.last_text : ": " + reading.failure().reason;
    return plc_base::shown_line(start + text) + "\n";
  }

  FILE* file_;
  const Chart* chart_;
};

// An object per change and event, and one with the figures at the end.
class JsonOutput : public WatchOutput {
 public:
  JsonOutput(FILE* file, WideIntegers wide) : file_(file), wide_(wide) {}
  void begin(const WatchState&) override {}
  void show_round(const WatchState& state, const RoundOutcome& outcome) override {
    if (outcome.contact) {
      const WallTime now = std::chrono::system_clock::now();
      Json event = {{"time", utc_time_text(now)}, {"event", event_word(outcome)}};
      if (*outcome.contact == Contact::kValues) event["away_ms"] = std::llround(milliseconds(outcome.away));
      if (*outcome.contact == Contact::kNoValues) event["reason"] = outcome.reason;
      write_json_line(file_, event);
    }
    for (const size_t row : outcome.changed) write_json_line(file_, result_json(state.rows()[row].latest, wide_));
    std::fflush(file_);
  }
  void show_line(const std::string& line) override { show_plain_line(line); }
  void end(const WatchState&, const CallFigures& figures) override {
    Json summary = {{"calls", figures.calls}, {"failures", figures.without_value()}};
    const auto times = round_trips(figures);
    const char* const names[] = {"shortest_ms", "mean_ms", "longest_ms"};
    for (size_t i = 0; i < std::size(names); ++i) summary[names[i]] = times ? Json(times->at(i)) : Json();
    write_json_line(file_, {{"summary", summary}});
    std::fflush(file_);
  }

 private:
  FILE* file_;
  WideIntegers wide_;
};

// A row per round with a column per element; empty fields where there is no value.
class CsvOutput : public WatchOutput {
 public:
  explicit CsvOutput(FILE* file) : file_(file) {}
  void begin(const WatchState& state) override {
    std::string line = "time,state,reason";
    for (const WatchRow& row : state.rows()) {
      const std::vector<Subscripts> elements = chosen_elements(row.latest.reference);
      for (const Subscripts& element : elements) {
        const bool whole = row.latest.reference.extents.empty();
        line += "," + shown_csv_cell(whole ? row.latest.name
                                           : row.latest.reference.tag->qualified_name + subscript_text(element));
      }
    }
    std::fputs((line + "\n").c_str(), file_);
    std::fflush(file_);
  }
  void show_round(const WatchState& state, const RoundOutcome&) override {
    std::string line = utc_time_text(state.round_time()) + "," + round_word(state.rows()) + "," +
                       shown_csv_cell(round_reason(state.rows()));
    for (const WatchRow& row : state.rows()) line += fields_of(row);
    std::fputs((line + "\n").c_str(), file_);
    std::fflush(file_);
  }
  void show_line(const std::string& line) override { show_plain_line(line); }
  void end(const WatchState&, const CallFigures& figures) override { show_line("plc-host: " + summary_text(figures)); }

 private:
  static std::string fields_of(const WatchRow& row) {
    const TagReference& reference = row.latest.reference;
    const TagValue* value = row.latest.reading.value();
    if (value != nullptr) return csv_cells(reference, *value);
    const bool is_text = value_kind(reference.tag->entry) == ValueKind::kText;
    return std::string(is_text ? 1 : chosen_elements(reference).size(), ',');
  }

  FILE* file_;
};

// A line per change with the value alone, of a single variable.
class RawOutput : public WatchOutput {
 public:
  explicit RawOutput(FILE* file) : file_(file) {}
  void begin(const WatchState&) override {}
  void show_round(const WatchState& state, const RoundOutcome& outcome) override {
    for (const size_t row : outcome.changed) {
      const TagResult& latest = state.rows()[row].latest;
      if (!latest.ok()) continue;
      std::fputs((plc_base::shown_line(raw_text(latest.reference, *latest.reading.value())) + "\n").c_str(), file_);
    }
    std::fflush(file_);
    for (const size_t row : outcome.failed) show_line(failure_line(state.rows()[row].latest));
  }
  void show_line(const std::string& line) override { show_plain_line(line); }
  void end(const WatchState&, const CallFigures& figures) override { show_line("plc-host: " + summary_text(figures)); }

 private:
  FILE* file_;
};

// A table that each round redraws, and in between its own thread, also while the driver waits for the controller.
class ScreenOutput : public WatchOutput {
 public:
  ScreenOutput(const ResultFile& file, const Chart* chart)
      : keyboard_(file.descriptor()), screen_(file.stream(), file.descriptor()), chart_(chart) {}
  void begin(const WatchState& state) override {
    view_ = std::make_unique<ScreenView>(state);
    attendant_ = std::make_unique<Attendant>([this, &state] { attend(state); });
  }
  void begin_round() override { attendant_->begin(); }
  void between_calls(std::chrono::milliseconds pause) override {
    const auto lock = attendant_->hold();
    allow_suspension();
    asked_at_ = std::chrono::steady_clock::now() + pause;
  }
  void end_round() override {
    attendant_->end();
    asked_at_.reset();
  }
  void show_round(const WatchState& state, const RoundOutcome& outcome) override {
    view_->take_round(state, outcome);
    draw(state);
  }
  void show_again(const WatchState& state) override { draw(state); }
  int keys() const override { return keyboard_.descriptor(); }
  void take_keys(const WatchState& state) override {
    if (keyboard_.take_again()) {
      screen_.begin_anew();
      return draw(state);
    }
    const std::string keys = keyboard_.read_keys();
    if (keys.empty()) return;
    view_->take_keys(keys);
    if (view_->is_left()) return request_stop();
    draw(state);
  }
  void show_line(const std::string& line) override {
    const auto lock = attendant_->hold();
    screen_.clear();
    show_plain_line(line);
  }
  void end(const WatchState&, const CallFigures& figures) override {
    show_plain_line("plc-host: " + summary_text(figures));
  }

 private:
  void attend(const WatchState& state) {
    struct pollfd awaited {
      keyboard_.descriptor(), POLLIN, 0
    };
    if (poll(&awaited, 1, 0) > 0) return take_keys(state);
    draw(state);
  }

  void draw(const WatchState& state) {
    if (keyboard_.is_in_background()) return;
    if (keyboard_.take_again()) screen_.begin_anew();
    const ScreenSize size = screen_.size();
    const bool has_chart = chart_ != nullptr && size.rows >= kRowsWithChart;
    // The last line of the terminal stays free: the cursor stands there.
    const size_t all = size.rows > 1 ? size.rows - 1 : 1;
    const bool has_word_on_chart = chart_ != nullptr && !has_chart && all > 2;
    const size_t height = all - (has_chart ? kChartRows + 1 : has_word_on_chart ? 1 : 0);
    DrawTime time{std::chrono::steady_clock::now()};
    if (asked_at_ && time.now - *asked_at_ >= kLongCall) time.waiting_since = asked_at_;
    // Without keys nothing can be marked.
    std::vector<std::string> lines = keyboard_.descriptor() < 0
                                         ? draw_table(state, time, size.columns, std::max(height, kLeastTable))
                                         : view_->draw(state, time, size.columns, height);
    if (has_chart) {
      const std::vector<std::string> drawn = chart_->draw(size.columns, kChartRows);
      lines.insert(lines.end() - 1, drawn.begin(), drawn.end());
    } else if (has_word_on_chart) {
      const std::string wanting = "the chart takes " + std::to_string(kRowsWithChart) + " rows of a terminal";
      lines.insert(lines.end() - 1, fit_columns(wanting, size.columns));
    }
    screen_.show(fit_rows(lines, size.rows));
  }

  Keyboard keyboard_;
  WatchScreen screen_;
  std::unique_ptr<ScreenView> view_;
  const Chart* chart_;
  std::optional<WatchTime> asked_at_;     // what the driver is waiting for the answer to
  std::unique_ptr<Attendant> attendant_;  // ends before what it draws with
};

}  // namespace

std::unique_ptr<WatchOutput> make_watch_output(const ResultFile& file, const ResultForm& form, const Chart* chart) {
  if (form.form == Form::kJson) return std::make_unique<JsonOutput>(file.stream(), form.wide);
  if (form.form == Form::kCsv) return std::make_unique<CsvOutput>(file.stream());
  if (form.form == Form::kRaw) return std::make_unique<RawOutput>(file.stream());
  if (isatty(file.descriptor()) == 1 && !is_dumb_terminal()) return std::make_unique<ScreenOutput>(file, chart);
  return std::make_unique<LineOutput>(file.stream(), chart);
}

std::string round_word(const std::vector<WatchRow>& rows) {
  const auto has_value = [](const WatchRow& row) { return row.latest.ok(); };
  const auto with_value = std::find_if(rows.begin(), rows.end(), has_value);
  const bool is_whole = std::all_of(rows.begin(), rows.end(), has_value);
  if (with_value != rows.end()) return is_whole ? quality_word(with_value->latest.reading.quality()) : "partial";
  const auto tried =
      std::find_if(rows.begin(), rows.end(), [](const WatchRow& row) { return row.latest.reading.is_taken(); });
  return quality_word(tried == rows.end() ? Quality::kNotRead : tried->latest.reading.quality());
}

std::string round_reason(const std::vector<WatchRow>& rows) {
  std::vector<std::pair<std::string, std::vector<std::string>>> reasons;
  size_t most_names = kMostNames;
  for (const WatchRow& row : rows) {
    if (row.latest.ok()) {
      // An empty cell that no reason names is an empty text.
      most_names = rows.size();
      continue;
    }
    const std::string& reason = row.latest.reading.failure().reason;
    auto known = std::find_if(reasons.begin(), reasons.end(), [&](const auto& entry) { return entry.first == reason; });
    if (known == reasons.end()) known = reasons.insert(reasons.end(), {reason, {}});
    known->second.push_back(row.latest.name);
  }
  std::string text;
  for (const auto& [reason, names] : reasons) {
    text += text.empty() ? "" : "; ";
    for (size_t i = 0; i < std::min(names.size(), most_names); ++i) text += (i == 0 ? "" : ", ") + names[i];
    if (names.size() > most_names) text += " and " + std::to_string(names.size() - most_names) + " more";
    text += ": " + reason;
  }
  return text;
}

std::string contact_text(const RoundOutcome& outcome, const std::string& controller) {
  if (*outcome.contact == Contact::kSilent) return controller + " does not answer; asking on";
  if (*outcome.contact == Contact::kNoValues) return "no values: " + outcome.reason + "; asking on";
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.1f", std::chrono::duration<double>(outcome.away).count());
  return controller + (outcome.contact_before == Contact::kSilent ? " answers" : " gives values") + " again after " +
         seconds + " s";
}

std::string summary_text(const CallFigures& figures) {
  char times[96] = "- / - / -";
  if (const auto trips = round_trips(figures)) {
    std::snprintf(times, sizeof times, "%.2f / %.2f / %.2f", trips->at(0), trips->at(1), trips->at(2));
  }
  return plc_base::plural(figures.calls, "call") + ", " + plc_base::plural(figures.without_value(), "failure") +
         ", round trip " + times + " ms (shortest / mean / longest)";
}

}  // namespace plc_host
