// A moment as the log and the journal's rows have it.
#pragma once

#include <string>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

// "2026-11-22T09:30:00.123Z"
std::string utc_text(Ms wall);

}  // namespace plc_gateway
