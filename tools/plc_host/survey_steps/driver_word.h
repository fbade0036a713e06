// The values that the survey read by itself against those that plc-host read gives.
#pragma once

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/survey/conversation.h"
#include "tools/plc_host/survey/declared.h"

namespace plc_host::survey {

// Over a connection of the driver's, with none of the conversation's beside it. The build is the one that the command
// line says, or the contract build where the guarded one is not usable by what has been seen.
void compare_with_driver(Conversation& conversation, Declarations& declared, const HostOptions& options,
                         CommandOutput& output);

}  // namespace plc_host::survey
