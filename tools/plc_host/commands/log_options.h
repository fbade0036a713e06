// The options of watch that say where and how it logs.
#pragma once

#include <CLI/App.hpp>

#include "tools/plc_host/host_options.h"

namespace plc_host {

void add_log_options(CLI::App& command, HostOptions& options);

}  // namespace plc_host
