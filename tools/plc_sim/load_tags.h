// Loads the tag files of the command line into the variables, and says what is wrong with them.
#pragma once

#include "tools/plc_sim/options.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

// False when a tag file cannot be read, declares nothing, or has lines that cannot be declared; all of it was printed.
bool load_tags(const Options& options, VariableStore& store);

}  // namespace plc_sim
