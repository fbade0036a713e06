// The command line of a survey, so that it can be repeated.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/host_options.h"

namespace plc_host {

// What was given, and what settings say in place of options; words as a shell takes them.
std::string survey_command(const HostOptions& options, const std::vector<std::string>& tag_files);

}  // namespace plc_host
