// The other files that a configuration names.
#pragma once

#include "tools/plc_gateway/config/draft.h"

namespace plc_gateway {

// Paths are meant from the configuration's own folder on.
void set_paths(Draft& draft);

// Password, certificates and the journal's folder: whether they are there and can be used.
void check_files(const Draft& draft, Findings& findings);

// What was learnt of the controller, where the configuration names such a file: its mistakes, and what it sets.
void use_profile(Draft& draft, Findings& findings);

// The driver that was loaded: whether the profile rules it out, and whether unguarded values were accepted.
void check_driver(const Draft& draft, bool is_guarded, Findings& findings);

}  // namespace plc_gateway
