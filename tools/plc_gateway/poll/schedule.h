// Whose turn it is: groups of variables with their periods, each cut into pieces that one call of the driver reads.
//
// The group with the shortest period goes first, so that a slow group delays it by one piece at most; a slow group has
// one piece in each of its own periods all the same, however busy the fast ones are. Polls never pile up: a turn that
// comes while the last one is not done is skipped and counted.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "tools/plc_gateway/model/counters.h"
#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

// Variables of one group that one call reads.
struct Piece {
  size_t group = 0;
  std::vector<uint32_t> variables;
};

class Schedule {
 public:
  // Counts in `counters`, which outlives it, one for each group. All times are steady ones.
  Schedule(const std::vector<Ms>& periods, const std::vector<Piece>& pieces, std::vector<GroupCounters>& counters);

  // Everything has just been read: the first turns come one period from now.
  void start(Ms now);
  // Nothing is read any more; what was under way counts as failed.
  void abort(Ms now);
  bool running() const { return running_; }

  // Begins the polls whose turn has come.
  void advance(Ms now);
  // The piece to read next. Nothing: none is due.
  std::optional<size_t> next(Ms now);
  // The piece that next() named was read. True when the poll of its group is complete.
  bool done(size_t piece, Ms now);
  // When the next turn comes. Nothing: it is not running.
  std::optional<Ms> next_turn() const;

 private:
  struct Group {
    Ms period = 0;
    Ms turn = 0;  // when the next poll begins
    std::vector<size_t> pieces;
    size_t asked = 0;  // pieces of the poll under way that were handed out
    size_t read = 0;   // and those that were read
    bool under_way = false;
    Ms began = 0;
    Ms served = 0;  // when a piece of it was handed out last
  };

  void begin(Group& group, Ms now);

  std::vector<Group> groups_;
  std::vector<size_t> order_;  // of the groups, the shortest period first
  std::vector<size_t> group_of_;
  std::vector<GroupCounters>& counters_;
  bool running_ = false;
};

}  // namespace plc_gateway
