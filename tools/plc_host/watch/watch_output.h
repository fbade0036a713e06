// The forms in which watch shows its rounds: a table in a terminal, lines, JSON, or a spreadsheet.
#pragma once

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/result_file.h"
#include "tools/plc_host/results/result_form.h"
#include "tools/plc_host/watch/chart.h"
#include "tools/plc_host/watch/keyboard.h"
#include "tools/plc_host/watch/watch_state.h"

namespace plc_host {

class WatchOutput {
 public:
  virtual ~WatchOutput() = default;
  // Before the first round.
  virtual void begin(const WatchState& state) = 0;
  // While a round is read: the state stays as it is until end_round. between_calls is called before each call of the
  // driver and behind it; the driver pauses before it asks the controller.
  virtual void begin_round() {}
  virtual void between_calls(std::chrono::milliseconds) { allow_suspension(); }
  virtual void end_round() {}
  // After each round.
  virtual void show_round(const WatchState& state, const RoundOutcome& outcome) = 0;
  // When time has passed since.
  virtual void show_again(const WatchState&) {}
  // Where keys come from that take_keys is to be called for; -1: nowhere.
  virtual int keys() const { return -1; }
  virtual void take_keys(const WatchState&) {}
  // A line for standard error.
  virtual void show_line(const std::string& line) = 0;
  // After the last round.
  virtual void end(const WatchState& state, const CallFigures& figures) = 0;
};

// chart may be null; both must outlive the output.
std::unique_ptr<WatchOutput> make_watch_output(const ResultFile& file, const ResultForm& form, const Chart* chart);

// The state of a round, for its row of a spreadsheet: the state that all values share, "partial" when only some are
// there, or else the state of the first variable that was tried.
std::string round_word(const std::vector<WatchRow>& rows);

// Why values are missing: "Limits: REASON; Speed, Total, Ready and 3 more: REASON"; "" when none is. Where some
// variables have a value all others are named.
std::string round_reason(const std::vector<WatchRow>& rows);

// "192.168.0.10:8500 does not answer; asking on": what is said of a contact that has changed.
std::string contact_text(const RoundOutcome& outcome, const std::string& controller);

// "120 calls, 3 failures, round trip 0.21 / 0.35 / 2.10 ms (shortest / mean / longest)", with "-" for each time when no
// call succeeded
std::string summary_text(const CallFigures& figures);

}  // namespace plc_host
