// The settings put among the options of a command.
#pragma once

#include "tools/plc_host/host_options.h"

namespace plc_host {

// Has the options say what the command line, the environment and the files of settings say together. asks_controller:
// the command is one of those that take a controller. Throws HostError.
void use_settings(HostOptions& options, bool asks_controller);

// The host of the address; a port behind it becomes the setting, said where the address is. Throws HostError where the
// two name different ports.
std::string take_port_of_address(Settings& settings);

}  // namespace plc_host
