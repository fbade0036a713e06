// What watch knows between its rounds: values, their changes, and whether the controller answers. No input or output.
#pragma once

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "client/plan/tag_transfer.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

using WatchTime = std::chrono::steady_clock::time_point;

struct WatchRow {
  TagResult latest;                     // what the last round brought
  std::string last_text;                // the last value that there was, as it is shown
  std::optional<WatchTime> changed_at;  // when it became that; nothing while there never was a value
  WatchTime read_at;                    // when it was read for the last time
};

// What the rounds show of the controller.
enum class Contact {
  kValues,    // it answers with values, or was never asked
  kNoValues,  // what answers there gives none: refusals, or replies of something else
  kSilent,    // it does not answer
};

// What a round has brought.
struct RoundOutcome {
  std::vector<size_t> changed;     // rows with another value or another state than before
  std::vector<size_t> failed;      // rows whose failure is to be reported now
  std::optional<Contact> contact;  // when it is another than before
  Contact contact_before = Contact::kValues;
  std::string reason;                // with kNoValues: the variable asked for last and what came of it
  std::chrono::nanoseconds away{0};  // with kValues: since the first failure
};

// What a round says of the controller.
struct RoundSigns {
  const TagResult* latest = nullptr;  // the variable asked for last
  bool answered = false;              // some variable has a value
  bool cut_off = false;               // the connection was lost
};

class WatchState {
 public:
  explicit WatchState(const std::vector<TagReference>& references);

  // Takes the results of one round, an entry per row in order. Every row has the state of this round behind it: one
  // that the round did not get to is not read, whatever it was before.
  //
  // A row without a value has changed when it had one, or nothing, before, and again with each other state.
  // A failure is reported when the controller answers otherwise: at once for a row that never had a value, else when it
  // fails for the second time in a row, because a connection that breaks looks like a failing variable at first.
  RoundOutcome take_round(const std::vector<TagResult>& results, WatchTime began, WatchTime now);

  const std::vector<WatchRow>& rows() const { return rows_; }
  Contact contact() const { return contact_; }

  // The time of day at which the last row of the last round was read.
  WallTime round_time() const { return round_time_; }

  // True when a line of the driver is to be shown: each text once until the controller has answered again.
  bool is_new_line(const std::string& line);

 private:
  void take_contact(const std::vector<TagResult>& results, WatchTime began, WatchTime now, RoundOutcome& outcome);
  void change_contact(Contact contact, const TagResult& latest, WatchTime now, RoundOutcome& outcome);
  void take_value(size_t row, const TagResult& result, WatchTime now, RoundOutcome& outcome);
  void take_failure(size_t row, const TagResult& result, RoundOutcome& outcome);

  std::vector<WatchRow> rows_;
  std::vector<unsigned> failures_in_a_row_;
  std::vector<bool> failure_reported_;
  std::vector<bool> has_state_;  // of a round that is over
  Contact contact_ = Contact::kValues;
  std::optional<WatchTime> failing_since_;  // the first of the rounds in a row that lost the connection or all values
  WallTime round_time_{};
  std::set<std::string> shown_lines_;
};

}  // namespace plc_host
