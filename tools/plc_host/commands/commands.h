// The commands of plc-host: one function each, and the table that the command line is made from.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"

namespace CLI {
class App;
}

namespace plc_host {

struct Command {
  const char* name;
  const char* summary;
  std::string details;  // shown by the command's own --help: rules and examples
  void (*add_options)(CLI::App& command, HostOptions& options);
  // Throws HostError for an impossible combination of options; null when there is none.
  void (*check_options)(const HostOptions& options);
  int (*run)(const HostOptions& options, CommandOutput& output);
};

// In the order in which --help lists them.
const std::vector<Command>& command_table();

// What tags --new takes besides; part of the command tags.
void add_new_tag_options(CLI::App& command, HostOptions& options);
void check_tags(const HostOptions& options);
// Without --new.
void check_listing(const HostOptions& options);
// Whether --tags or --address on the command line say which tag file is meant.
bool names_tag_file(const HostOptions& options);
int run_new_tags(const HostOptions& options, CommandOutput& output);

int run_info(const HostOptions& options, CommandOutput& output);
int run_tags(const HostOptions& options, CommandOutput& output);
int run_check(const HostOptions& options, CommandOutput& output);
// Throws where the options of check, or the driver that they choose, do not go with --live.
void demand_live(const HostOptions& options);
// The names of the one checked file, asked of the controller; part of the command check. Returns the exit code.
int check_live(const HostOptions& options, CommandOutput& output);
int run_read(const HostOptions& options, CommandOutput& output);
int run_write(const HostOptions& options, CommandOutput& output);
int run_batch(const HostOptions& options, CommandOutput& output);
int run_watch(const HostOptions& options, CommandOutput& output);
int run_survey(const HostOptions& options, CommandOutput& output);
void add_survey_options(CLI::App& command, HostOptions& options);
void check_survey(const HostOptions& options);
int run_why(const HostOptions& options, CommandOutput& output);

}  // namespace plc_host
