// What every form of the report lists: the names that hosts asked for, and those that nobody did.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_sim/controller/ask_log.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

struct ReportRow {
  std::string tag;   // the variable's name with its program; empty for refused names
  std::string name;  // the element as it was asked for
  std::string type;
  std::string outcome;  // "served", "outside" or "refused"
  const AskedName* asked;
};

std::vector<ReportRow> report_rows(const AskLog& log);

std::vector<std::string> never_asked(const VariableStore& store, const AskLog& log);

// "2.5", "-" where there is no rate.
std::string rate_text(const AskedName& asked);

}  // namespace plc_sim
