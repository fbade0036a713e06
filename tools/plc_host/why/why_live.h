// Follows one value through the loaded driver, recording the traffic on its way.
#pragma once

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {

// Fills the report and returns the command's exit code. Throws HostError and ClientError.
int follow_live(const HostOptions& options, CommandOutput& output, WhyReport& report);

}  // namespace plc_host
