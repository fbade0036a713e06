// The connection as programs see it: its state, its counts, and the pause behind a failure.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "client/plc_client.h"

namespace plc_client {

class Link {
 public:
  Link(const Options& options, const core::Target& target);

  // Notes what a call of the driver brought.
  void note(const core::CallResult& call);
  void note_exchanges(size_t count) { state_.exchanges += count; }
  // Notes whether the connection stands, and tells the program of a change.
  void note_connected(bool is_connected);

  // Behind whatever used the connection. Sets the pause when a connect failed and none has come about.
  void end_use(bool is_connected, bool has_not_connected);
  // Nothing is tried meanwhile; zero when there is no pause.
  std::chrono::milliseconds pause_left() const;
  void end_pause();

  const State& state() const { return state_; }

 private:
  const Options& options_;
  core::Target target_;
  State state_;
  unsigned failed_uses_ = 0;
  std::chrono::steady_clock::time_point next_try_{};
};

Problem problem_of(const core::Failure& failure);

}  // namespace plc_client
