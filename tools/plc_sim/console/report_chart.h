// The chart of the report's page: requests over time by kind, and when there were violations and faults.
#pragma once

#include <string>

#include "tools/plc_sim/controller/run_log.h"

namespace plc_sim {

// A drawing with its legend; empty when nothing happened.
std::string report_chart(const RunLog& run);

// The number and colour of a kind of request in the chart: "kind3".
std::string chart_class(RequestKind kind);

// "0.250 s", "2 min 5 s", "3 h 20 min"
std::string duration_text(uint64_t ms);

}  // namespace plc_sim
