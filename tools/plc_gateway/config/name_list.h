// The names of a configuration looked up in the controller's tag files.
#pragma once

#include <string_view>

#include "tools/plc_gateway/config/draft.h"

namespace plc_gateway {

// Fills config.variables, and the types of the commands' variables. Sends nothing to the controller.
void look_names_up(Draft& draft, plc_client::Controller& controller, Findings& findings);

// Whether a name fits a pattern, in which * is any characters and ? is one. Brackets stand for themselves: they are
// part of the names of structures in arrays.
bool fits_glob(std::string_view pattern, std::string_view name);

}  // namespace plc_gateway
