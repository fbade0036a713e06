// What was found in a configuration, as lines.
#pragma once

#include <string>

#include "tools/plc_gateway/config/config.h"

namespace plc_gateway {

// "press1.toml:3:8"
std::string finding_place(const Finding& finding);

// "press1.toml:3:8: error: ...", as compilers have it.
std::string finding_line(const Finding& finding);

// All of them on standard error.
void show_findings(const ConfigResult& result);

// As show_findings, and throws GatewayError when there are mistakes.
void require_ok(const ConfigResult& result, const std::string& file);

}  // namespace plc_gateway
