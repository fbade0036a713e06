// Finds the road of one value in captured traffic. No driver call is made.
#pragma once

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {

// Fills the report and returns the command's exit code. Throws HostError and ClientError.
int follow_capture(const HostOptions& options, CommandOutput& output, WhyReport& report);

}  // namespace plc_host
