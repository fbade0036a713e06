// Whether each group is read in its turn, and none waits for a slower one longer than for one piece.
#pragma once

#include <vector>

#include "tests/tools/plc_gateway/simulation/world/plant.h"
#include "tests/tools/plc_gateway/simulation/world/world.h"
#include "tools/plc_gateway/model/counters.h"

namespace plc_gateway::simulation {

class PollWatch {
 public:
  // Reads that go well take `longest_read` at most.
  PollWatch(const SimClock& clock, const Configuration& configuration, Ms longest_read);

  void read_begins(size_t piece);
  // Before the edge node hears of it; and what it knows behind its step.
  void read_ends(size_t piece);
  void set_alive(bool alive);
  void write_begins() { disturb(); }
  void write_ends() { disturb(); }
  void check_skipped(const std::vector<GroupCounters>& groups);

 private:
  struct Group {
    Ms period = 0;
    Ms turn = 0;
    size_t pieces = 0;
    size_t asked = 0;  // of the poll under way
    size_t read = 0;
    bool under_way = false;
    std::vector<unsigned> waited_for;  // pieces of each other group, since its turn
    uint64_t skipped = 0;
  };

  void disturb();
  bool is_calm() const { return is_strict_ && clock_.steady_ms() > disturbed_until_; }
  void take_turns();

  const SimClock& clock_;
  const Configuration& configuration_;
  std::vector<Group> groups_;
  Ms shortest_ = 0;
  Ms longest_read_ = 0;
  bool is_strict_ = false;  // all pieces together take less than the shortest period
  bool is_running_ = false;
  Ms disturbed_until_ = 0;
  Ms read_began_ = 0;
  bool is_reading_ = false;
  size_t reading_group_ = 0;
};

}  // namespace plc_gateway::simulation
