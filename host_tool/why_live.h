// Follows one value through the loaded driver, recording the traffic on its way.
#ifndef HOST_TOOL_WHY_LIVE_H_
#define HOST_TOOL_WHY_LIVE_H_

#include "command_output.h"
#include "host_options.h"
#include "why_report.h"

namespace plc_host {

// Fills the report and returns the command's exit code. Throws HostError.
int follow_live(const HostOptions& options, CommandOutput& output, WhyReport& report);

// What the tag file has for the name or the number that the command line gives: fills position, register_id and line.
// Nothing when it has none; the report then says why.
std::optional<TagReference> look_up(const HostOptions& options, WhyReport& report);

}  // namespace plc_host

#endif  // HOST_TOOL_WHY_LIVE_H_
