// The log of watch: a row for each value that changes, and one for each gap between them. It has no clock of its own.
#pragma once

#include <cstdint>
#include <string>
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

  uint64_t written() const { return written_; }
  // Rows that could not be written.
  uint64_t dropped() const { return dropped_; }

 private:
  // What the last rows of a variable say.
  struct Logged {
    std::vector<std::string> names;  // of its elements
    bool is_known = false;
    Quality quality = Quality::kNotRead;
    TagValue value;
  };
  // Rows that no row in the log tells of yet.
  struct Gap {
    uint64_t rows = 0;
    WallTime from{};
    WallTime to{};
    std::string reason;
  };

  void add_contact(const RoundOutcome& outcome, WallTime now);
  void add_variable(const TagResult& result, Logged& logged, WallTime now);
  void add_value(const TagResult& result, Logged& logged, bool is_new);
  bool is_change(const TagEntry& entry, uint64_t before, uint64_t after) const;
  void add_event(const char* word, const std::string& reason, WallTime now);
  void add_row(const std::string& row, WallTime time);
  void note_dropped(WallTime time, const std::string& reason);
  bool close_gap(WallTime now);
  void forget_after_gap();

  LogFile& file_;
  ChangeLogRules rules_;
  LogFile::Tell tell_;
  std::vector<Logged> logged_;
  Gap gap_;
  bool is_behind_gap_ = false;  // rows are missing, and the values have not been logged anew
  uint64_t written_ = 0;
  uint64_t dropped_ = 0;
};

}  // namespace plc_host
