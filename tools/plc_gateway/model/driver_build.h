// Which build of the driver a controller of the client library has loaded.
#pragma once

#include <string>

namespace plc_gateway {

// build as the library names it: "1.1.0 guarded".
inline bool is_guarded_build(const std::string& build) { return build.substr(build.rfind(' ') + 1) == "guarded"; }

}  // namespace plc_gateway
