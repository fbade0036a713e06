// Follows one value through the loaded driver, recording the traffic on its way.
#pragma once

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {

// Fills the report and returns the command's exit code. Throws HostError and ClientError.
int follow_live(const HostOptions& options, CommandOutput& output, WhyReport& report);

// What the tag file has for the name or the number that the command line gives: fills position, register_id and line.
// Nothing when it has none; the report then says why.
std::optional<TagReference> look_up(const HostOptions& options, WhyReport& report);

}  // namespace plc_host
