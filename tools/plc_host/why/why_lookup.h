// The record of the value that is followed.
#pragma once

#include <optional>

#include "tools/plc_host/host_options.h"
#include "tools/plc_host/why/why_report.h"

namespace plc_host {

// What the tag file has for the name or the number that the command line gives: fills position, register_id and line.
// Nothing when it has none; the report then says why.
std::optional<TagReference> look_up(const HostOptions& options, WhyReport& report);

}  // namespace plc_host
