// The command line of plc-host: what it understands, its help, and the call of the chosen command.
#pragma once

namespace plc_host {

// Runs the command and returns the exit code of the process.
int run_command_line(int argc, char** argv);

}  // namespace plc_host
