// Options for the form of results.
#pragma once

#include <CLI/App.hpp>

#include "tools/plc_host/host_options.h"
#include "tools/plc_host/results/result_form.h"

namespace plc_host {

// --format and --csv, which go with the --json that every command has.
void add_form_option(CLI::App& command, HostOptions& options);
// The same, and --int64-text.
void add_form_options(CLI::App& command, HostOptions& options);
void add_raw_option(CLI::App& command, HostOptions& options);

// Throws HostError where more than one form is asked for.
void check_form(const HostOptions& options);

ResultForm form_of(const HostOptions& options);

}  // namespace plc_host
