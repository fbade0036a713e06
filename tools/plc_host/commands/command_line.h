// The command line of plc-host: what it understands, its help, and the call of the chosen command.
#ifndef TOOLS_PLC_HOST_COMMANDS_COMMAND_LINE_H_
#define TOOLS_PLC_HOST_COMMANDS_COMMAND_LINE_H_

namespace plc_host {

// Runs the command and returns the exit code of the process.
int run_command_line(int argc, char** argv);

}  // namespace plc_host

#endif  // TOOLS_PLC_HOST_COMMANDS_COMMAND_LINE_H_
