// Shows rounds in the form that was asked for.
#include "watch_output.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

#include "result_writer.h"
#include "value_type.h"
#include "watch_screen.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;

constexpr size_t kChartRows = 8;
constexpr size_t kChartColumns = 80;  // where no terminal tells its width

enum class Clock { kLocal, kUtc };

// "08:30:00.123" for people, "2026-11-21T08:30:00.123Z" for programs.
std::string time_text(Clock clock) {
  struct timeval now {};
  gettimeofday(&now, nullptr);
  struct tm parts {};
  if (clock == Clock::kLocal) {
    localtime_r(&now.tv_sec, &parts);
  } else {
    gmtime_r(&now.tv_sec, &parts);
  }
  char text[64];
  const size_t length =
      std::strftime(text, sizeof text, clock == Clock::kLocal ? "%H:%M:%S" : "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03d%s", static_cast<int>(now.tv_usec / 1000),
                clock == Clock::kLocal ? "" : "Z");
  return text;
}

double milliseconds(std::chrono::nanoseconds time) { return std::chrono::duration<double, std::milli>(time).count(); }

double mean_ms(const CallFigures& figures) {
  const uint64_t succeeded = figures.calls - figures.failures;
  return succeeded == 0 ? 0 : milliseconds(figures.total) / static_cast<double>(succeeded);
}

void print_line(const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); }

// A line per change.
class LineOutput : public WatchOutput {
 public:
  LineOutput(FILE* file, const Chart* chart) : file_(file), chart_(chart) {}
  void begin(const WatchState&) override {}
  void show_round(const WatchState& state, const RoundOutcome& outcome) override {
    for (const size_t row : outcome.changed) {
      const WatchRow& entry = state.rows()[row];
      std::fprintf(file_, "%s %s = %s\n", time_text(Clock::kLocal).c_str(), entry.latest.name.c_str(),
                   entry.text.c_str());
    }
    std::fflush(file_);
    for (const size_t row : outcome.failed) {
      show_line("plc-host: " + state.rows()[row].latest.name + ": " + state.rows()[row].error);
    }
  }
  void show_line(const std::string& line) override { print_line(line); }
  void end(const WatchState&, const CallFigures& figures) override {
    if (chart_ != nullptr) {
      for (const std::string& line : chart_->draw(kChartColumns, kChartRows)) std::fputs((line + "\n").c_str(), file_);
    }
    std::fflush(file_);
    show_line("plc-host: " + summary_text(figures));
  }

 private:
  FILE* file_;
  const Chart* chart_;
};

// An object per change and event, and one with the figures at the end.
class JsonOutput : public WatchOutput {
 public:
  explicit JsonOutput(FILE* file) : file_(file) {}
  void begin(const WatchState&) override {}
  void show_round(const WatchState& state, const RoundOutcome& outcome) override {
    if (outcome.lost || outcome.back) {
      Json event = {{"time", time_text(Clock::kUtc)}, {"event", outcome.lost ? "lost" : "back"}};
      if (outcome.back) event["away_ms"] = std::llround(milliseconds(outcome.away));
      write_json_line(file_, event);
    }
    for (const size_t row : outcome.changed) write_row(result_json(state.rows()[row].latest));
    for (const size_t row : outcome.failed) {
      TagResult failure = state.rows()[row].latest;
      failure.error = state.rows()[row].error;
      write_row(result_json(failure));
    }
    std::fflush(file_);
  }
  void show_line(const std::string& line) override { print_line(line); }
  void end(const WatchState&, const CallFigures& figures) override {
    write_json_line(file_, {{"summary",
                             {{"calls", figures.calls},
                              {"failures", figures.failures},
                              {"shortest_ms", milliseconds(figures.shortest)},
                              {"mean_ms", mean_ms(figures)},
                              {"longest_ms", milliseconds(figures.longest)}}}});
    std::fflush(file_);
  }

 private:
  void write_row(const Json& result) {
    Json object = {{"time", time_text(Clock::kUtc)}};
    object.update(result);
    write_json_line(file_, object);
  }

  FILE* file_;
};

// A row per round with a column per element; empty fields where there is no value.
class CsvOutput : public WatchOutput {
 public:
  explicit CsvOutput(FILE* file) : file_(file) {}
  void begin(const WatchState& state) override {
    std::string line = "time";
    for (const WatchRow& row : state.rows()) {
      const std::vector<Subscripts> elements = chosen_elements(row.latest.reference);
      for (const Subscripts& element : elements) {
        const bool whole = row.latest.reference.extents.empty();
        line += "," +
                csv_field(whole ? row.latest.name : row.latest.reference.tag->qualified_name + subscript_text(element));
      }
    }
    std::fputs((line + "\n").c_str(), file_);
  }
  void show_round(const WatchState& state, const RoundOutcome&) override {
    std::string line = time_text(Clock::kUtc);
    for (const WatchRow& row : state.rows()) line += fields_of(row);
    std::fputs((line + "\n").c_str(), file_);
    std::fflush(file_);
  }
  void show_line(const std::string& line) override { print_line(line); }
  void end(const WatchState&, const CallFigures& figures) override { show_line("plc-host: " + summary_text(figures)); }

 private:
  static std::string fields_of(const WatchRow& row) {
    const TagResult& latest = row.latest;
    const TagEntry& entry = latest.reference.tag->entry;
    const bool has_value = row.error.empty() && row.changed_at.has_value();
    if (value_kind(entry) == ValueKind::kText) return "," + (has_value ? csv_field(latest.value.text) : "");
    if (value_kind(entry) == ValueKind::kRaw) {
      return "," + (has_value ? csv_field(row.text) : "") +
             std::string(chosen_elements(latest.reference).size() - 1, ',');
    }
    std::string fields;
    if (!has_value) return std::string(chosen_elements(latest.reference).size(), ',');
    for (const uint64_t bits : latest.value.elements) fields += "," + format_element(entry, bits);
    return fields;
  }

  FILE* file_;
};

// A table that each round redraws.
class ScreenOutput : public WatchOutput {
 public:
  ScreenOutput(FILE* file, const Chart* chart) : screen_(file), chart_(chart) {}
  void begin(const WatchState&) override {}
  void show_round(const WatchState& state, const RoundOutcome&) override {
    const ScreenSize size = screen_.size();
    const size_t chart_height = chart_ != nullptr ? kChartRows + 1 : 0;
    // The last line of the terminal stays free: the cursor stands there.
    const size_t table_height = size.rows > chart_height + 1 ? size.rows - chart_height - 1 : 0;
    std::vector<std::string> lines =
        draw_table(state, std::chrono::steady_clock::now(), size.columns, std::max<size_t>(table_height, 4));
    if (chart_ != nullptr) {
      const std::vector<std::string> drawn = chart_->draw(size.columns, kChartRows);
      lines.insert(lines.end() - 1, drawn.begin(), drawn.end());
    }
    screen_.show(lines);
  }
  void show_line(const std::string& line) override {
    screen_.clear();
    print_line(line);
  }
  void end(const WatchState&, const CallFigures& figures) override { print_line("plc-host: " + summary_text(figures)); }

 private:
  WatchScreen screen_;
  const Chart* chart_;
};

}  // namespace

std::unique_ptr<WatchOutput> make_watch_output(FILE* file, bool json, bool csv, const Chart* chart) {
  if (json) return std::make_unique<JsonOutput>(file);
  if (csv) return std::make_unique<CsvOutput>(file);
  if (isatty(fileno(file)) == 1) return std::make_unique<ScreenOutput>(file, chart);
  return std::make_unique<LineOutput>(file, chart);
}

std::string summary_text(const CallFigures& figures) {
  char text[160];
  std::snprintf(text, sizeof text,
                "%llu calls, %llu failures, round trip %.2f / %.2f / %.2f ms (shortest / mean / longest)",
                static_cast<unsigned long long>(figures.calls), static_cast<unsigned long long>(figures.failures),
                milliseconds(figures.shortest), mean_ms(figures), milliseconds(figures.longest));
  return text;
}

std::string csv_field(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string field = "\"";
  for (const char sign : text) field += sign == '"' ? std::string("\"\"") : std::string(1, sign);
  return field + "\"";
}

}  // namespace plc_host
