// Files that commands write beside their results: never the one that the results go to.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/result_file.h"
#include "tools/plc_host/settings/settings.h"

namespace plc_host {

// "cannot write p: it is a folder. Try: name a file in it"
HostError unwritten(const std::string& path, const std::string& problem);

// Throws HostError where a file of another kind would be replaced: one that is not empty and begins like no capture.
void demand_capture(const std::string& path);

// The paths of what a command reads beside these: the files of settings, and the profile.
std::vector<std::string> with_settings_files(std::vector<std::string> inputs, const Settings& settings);

// Throws HostError where the results go to this file too.
void demand_apart(const std::string& path, const ResultFile& results);

}  // namespace plc_host
