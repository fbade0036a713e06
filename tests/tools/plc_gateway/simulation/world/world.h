// Time in a life: a clock that only the life moves, and what happens when.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/plc_gateway/node/seams.h"

namespace plc_gateway::simulation {

// A promise that was not kept.
class Violation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class SimClock : public Clock {
 public:
  Ms wall_ms() const override { return now_ + offset_; }
  Ms steady_ms() const override { return now_; }

  void go_to(Ms now) { now_ = now; }
  void jump(Ms by) {
    offset_ += by;
    if (by < 0) ++jumps_back_;
  }
  // Times of the wall clock are in order where this number is the same.
  unsigned jumps_back() const { return jumps_back_; }

 private:
  Ms now_ = 1000;
  Ms offset_ = 1700000000000;
  unsigned jumps_back_ = 0;
};

class Events {
 public:
  using Act = std::function<void()>;
  void at(Ms when, Act act);
  std::optional<Ms> next() const;
  // The earliest one; of several at the same time the one that was asked for first.
  void run_first();
  uint64_t run() const { return run_; }

 private:
  struct Event {
    Ms when;
    uint64_t number;
    Act act;
  };
  static bool later(const Event& a, const Event& b) { return a.when != b.when ? a.when > b.when : a.number > b.number; }
  std::vector<Event> heap_;
  uint64_t asked_ = 0;
  uint64_t run_ = 0;
};

// What a life counts.
struct Totals {
  uint64_t lives = 0;
  Ms simulated_ms = 0;
  uint64_t events = 0;
  uint64_t steps = 0;
  uint64_t kills = 0;
  uint64_t power_cuts = 0;
  uint64_t broker_losses = 0;
  uint64_t controller_losses = 0;
  uint64_t readings = 0;
  uint64_t rows = 0;
  uint64_t values = 0;          // journaled
  uint64_t accepted = 0;        // metrics that the broker accepted
  uint64_t historical = 0;      // of them
  uint64_t duplicates = 0;      // of them
  uint64_t dropped = 0;         // values, counted by the gateway
  uint64_t died_in_memory = 0;  // values that the disk had refused and a kill took
  uint64_t commands = 0;
  uint64_t writes = 0;
  uint64_t births = 0;

  void add(const Totals& other);
};

}  // namespace plc_gateway::simulation
