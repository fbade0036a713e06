// plc-sim as a whole: loads the tag files, runs the event loop, and says how it ended.
#pragma once

#include "tools/plc_sim/options.h"

namespace plc_sim {

// The exit code: 0 done, 1 a violation was seen, 2 nothing could be started.
int run_simulator(const Options& options);

}  // namespace plc_sim
