// The log of watch: a row for each value that changes, and one for each gap between them; each file but the first
// begins with the values so far. It has no clock of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tools/plc_host/watch/watch_state.h"
#include "tools/plc_host/watch_log/log_file.h"

namespace plc_host {

inline constexpr char kLogHeading[] = "time,name,value,state,reason\n";

struct ChangeLogRules {
  double deadband = 0;       // numbers that are not farther from their last row have none
  bool every_round = false;  // a row for each value of each round, changed or not
};

class ChangeLog {
 public:
  // tell: what the user is to know at once.
  ChangeLog(LogFile& file, ChangeLogRules rules, const std::vector<TagReference>& references, LogFile::Tell tell);

  // The row with which a log begins, or goes on; about says of what it is.
  void begin(const std::string& about, WallTime now);
  // The rows of a round that state has just taken.
  void take_round(const WatchState& state, const RoundOutcome& outcome, WallTime now);
  // The row with which it ends.
  void end(WallTime now);

  uint64_t written() const { return written_ + file_.first_rows_written(); }
  // Rows that could not be written.
  uint64_t dropped() const { return dropped_; }

 private:
  // What the last rows of a variable say.
  struct Logged {
    std::vector<std::string> names;  // of its elements
    bool is_known = false;
    Quality quality = Quality::kNotRead;
    std::string reason;
    TagValue value;
    std::vector<WallTime> times;  // of the last row of each element
  };
  // A row that is to be written; of no variable where it has no element.
  struct Row {
    std::string text;
    WallTime time{};
    size_t variable = 0;
    std::optional<size_t> element;
  };
  // Rows that no row in the log tells of yet.
  struct Gap {
    uint64_t rows = 0;
    WallTime from{};
    WallTime to{};
    std::string reason;
  };

  WallTime start_of(const WatchState& state, WallTime now) const;
  static Row contact_row(const RoundOutcome& outcome, WallTime now);
  void collect_variable(const TagResult& result, size_t variable, WallTime now);
  void collect_value(const TagResult& result, size_t variable, bool is_new);
  void collect_row(const std::string& text, WallTime time, size_t variable, size_t element);
  bool is_change(const TagEntry& entry, uint64_t before, uint64_t after) const;
  static Row event_row(const char* word, const std::string& reason, WallTime now);
  void write_collected();
  void write_row(const Row& row);
  std::string values_so_far(WallTime time) const;
  std::set<std::pair<size_t, size_t>> coming_rows() const;
  static std::string repeated_row(const TagReference& reference, const Logged& logged, size_t element, WallTime time);
  void note_dropped(WallTime time, const std::string& reason);
  bool close_gap(WallTime now);
  void forget_after_gap();

  LogFile& file_;
  ChangeLogRules rules_;
  LogFile::Tell tell_;
  std::vector<TagReference> references_;
  std::vector<Row> collected_;  // of a round
  size_t next_ = 0;             // of them, to be written
  std::vector<Logged> logged_;
  Gap gap_;
  bool is_behind_gap_ = false;  // rows are missing, and the values have not been logged anew
  WallTime last_time_{};        // of the last row that was written
  uint64_t written_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace plc_host
