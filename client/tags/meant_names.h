// Variables that somebody may have meant whose name a tag file does not have.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace plc_client::core {

// Those near to the name, its subscripts left away; where there is none, some of the members of a structure or array of
// structures that is called so.
std::vector<std::string> meant_names(std::string_view name, const std::vector<std::string>& names);

}  // namespace plc_client::core
