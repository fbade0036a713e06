// The report of what hosts asked for, as text, JSON and CSV.
#pragma once

#include <string>

#include "tools/plc_sim/controller/ask_log.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

// "text", "json" or "csv"; throws Mistake for anything else.
std::string make_report(const VariableStore& store, const AskLog& log, const std::string& format);

// By the ending of a file's name: .json and .csv, text for all others.
std::string report_format_for(const std::string& path);

}  // namespace plc_sim
