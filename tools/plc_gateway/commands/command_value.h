// The value of a command: whether the variable can take it, and as what the client library writes it.
#pragma once

#include <optional>
#include <string>

#include "tools/plc_gateway/model/variable.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {

struct CommandValue {
  std::optional<plc_client::Input> input;
  std::string kind;    // "type" or "range" when there is none
  std::string reason;  // what is wrong, without the variable's name
};

// The metric has a value. Nothing is converted unless it stays exactly the same: a number that another form of it could
// mean two ways is refused.
CommandValue command_value(const CommandRule& rule, const CommandMetric& metric);

}  // namespace plc_gateway
