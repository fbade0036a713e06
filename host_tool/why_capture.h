// Finds the road of one value in captured traffic. No driver call is made.
#ifndef HOST_TOOL_WHY_CAPTURE_H_
#define HOST_TOOL_WHY_CAPTURE_H_

#include "command_output.h"
#include "host_options.h"
#include "why_report.h"

namespace plc_host {

// Fills the report and returns the command's exit code. Throws HostError.
int follow_capture(const HostOptions& options, CommandOutput& output, WhyReport& report);

}  // namespace plc_host

#endif  // HOST_TOOL_WHY_CAPTURE_H_
