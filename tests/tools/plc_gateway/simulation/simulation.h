// Many lives, one after the other.
#pragma once

#include <cstdint>
#include <string>

#include "tests/tools/plc_gateway/simulation/world/world.h"

namespace plc_gateway::simulation {

struct Report {
  Totals totals;
  std::string violation;  // of the first life that had one; empty: none
  uint64_t failed_seed = 0;
};

// Lives from the seed on until so many hours have been simulated, or a promise was not kept.
Report simulate(uint64_t first_seed, uint64_t hours);
std::string told(const Report& report);

}  // namespace plc_gateway::simulation
