// What watch knows between its rounds: values, their changes, and whether the controller answers. No input or output.
#ifndef HOST_TOOL_WATCH_STATE_H_
#define HOST_TOOL_WATCH_STATE_H_

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tag_transfer.h"

namespace plc_host {

using WatchTime = std::chrono::steady_clock::time_point;

struct WatchRow {
  TagResult latest;                     // the last value, or the last error when there never was a value
  std::string text;                     // the value as it is shown; empty while there is none
  std::string error;                    // of the last round, when it failed
  std::optional<WatchTime> changed_at;  // of the value
};

// What a round has brought.
struct RoundOutcome {
  std::vector<size_t> changed;       // rows with a new value
  std::vector<size_t> failed;        // rows whose failure is to be reported now
  bool lost = false;                 // the controller has gone away: said once
  bool back = false;                 // it answers again: said once
  std::chrono::nanoseconds away{0};  // then for how long it was away
};

class WatchState {
 public:
  explicit WatchState(const std::vector<TagReference>& references);

  // Takes the results of one round, an entry per row in order; rows that the round did not get to have an empty name.
  //
  // A failure is reported when the controller answers otherwise: at once for a row that never had a value, else when it
  // fails for the second time in a row, because a connection that breaks looks like a failing variable at first.
  RoundOutcome take_round(const std::vector<TagResult>& results, WatchTime now);

  const std::vector<WatchRow>& rows() const { return rows_; }
  bool is_away() const { return away_since_.has_value(); }

  // True when a line of the driver is to be shown: each text once until the controller has answered again.
  bool is_new_line(const std::string& line);

 private:
  void take_result(size_t row, const TagResult& result, WatchTime now, RoundOutcome& outcome);

  std::vector<WatchRow> rows_;
  std::vector<unsigned> failures_in_a_row_;
  std::vector<bool> failure_reported_;
  std::optional<WatchTime> away_since_;
  std::set<std::string> shown_lines_;
};

}  // namespace plc_host

#endif  // HOST_TOOL_WATCH_STATE_H_
