// What the controller told the edge node, and what of it has to be in the journal.
#pragma once

#include <string>
#include <vector>

#include "tests/tools/plc_gateway/simulation/world/plant.h"
#include "tests/tools/plc_gateway/simulation/world/world.h"
#include "tools/plc_gateway/journal/journal.h"

namespace plc_gateway::simulation {

// Whether a host that knows `before` must hear of `now`: the promise of deadbands, computed another way than the
// gateway does.
bool must_be_told(const Variable& variable, const Sample& before, const Sample& now);

class Readings {
 public:
  // Of one process of the gateway.
  explicit Readings(const Configuration& configuration);

  void delivered(const ReadResult& result, unsigned jumps_back);
  // Samples of the row are the last ones of their variables; a change of each is in the journal once.
  void journaled(const JournalRow& row);
  // All last values were published in a birth.
  void born();
  // Behind the step that took a read.
  void check_after(const ReadResult& result) const;

  bool alive() const { return alive_; }
  const Sample& last(size_t variable) const { return known_[variable].last; }
  unsigned jumps_back(size_t variable) const { return known_[variable].jumps_back; }
  // Readings that the journal must have and has not.
  size_t owed() const { return owed_; }

 private:
  struct Known {
    Sample last;
    Sample told;  // by the journal or a birth
    unsigned jumps_back = 0;
    bool is_owed = false;
  };

  const Configuration& configuration_;
  std::vector<Known> known_;
  bool alive_ = false;
  size_t owed_ = 0;
};

}  // namespace plc_gateway::simulation
