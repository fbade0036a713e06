// Options for what files of settings and the environment say too.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <string>

#include "tools/plc_host/host_options.h"

namespace plc_host {

// The option of the setting that is called so.
CLI::Option* add_setting(CLI::App& command, const std::string& name, HostOptions& options, const std::string& help);

// --library, another name for the path of a driver.
CLI::Option* add_library_option(CLI::App& command, HostOptions& options);

}  // namespace plc_host
