// The report as one page for people: what ran how long, what was wrong with it, and when; it needs no other file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/plc_sim/controller/ask_log.h"
#include "tools/plc_sim/controller/run_log.h"
#include "tools/plc_sim/controller/tally.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

struct ReportedRun {
  std::string listening;
  std::vector<std::string> files;  // tag files, or the capture that was replayed
  const VariableStore& store;
  const AskLog& asked;
  const RunLog& run;
  const Tally& tally;
};

// HTML. Everything from outside stands in it as text, and nothing in it asks a network for anything.
std::string report_page(const ReportedRun& reported);

}  // namespace plc_sim
