// What a command says, as text for its result: short, whatever came.
#pragma once

#include <optional>
#include <string>

#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {

// As many bytes as a name or a value of a result may have; "..." stands for the rest.
std::string shortened(const std::string& text);

// The value of a command: "-5", "7.5", "true", a text as it is, "[1,2]" of a packed array. Nothing without one. A
// command without a data type has that of the variable, where it is known.
std::optional<std::string> value_text(const CommandMetric& metric, std::optional<DataType> type_of_variable);

}  // namespace plc_gateway
