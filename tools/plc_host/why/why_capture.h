// Finds the road of one value in captured traffic. No driver call is made.
#pragma once

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/why/why_report.h"
#include "wire/captures/capture.h"

namespace plc_host {

// Fills the report and returns the command's exit code. Throws HostError and ClientError.
int follow_capture(const HostOptions& options, CommandOutput& output, WhyReport& report);

// The same with what the capture and, where the options name one, the tag file hold. take_capture throws HostError for
// a capture without traffic of this protocol.
void take_capture(const HostOptions& options, const wire_trace::CapturedRecording& captured, WhyReport& report);
int explain_capture(const HostOptions& options, WhyReport& report);

}  // namespace plc_host
