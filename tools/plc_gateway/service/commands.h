// What plc-gateway does: a function for each of its commands.
#pragma once

#include <string>

namespace plc_gateway {

// Until a signal ends it. Throws GatewayError when it cannot start.
int run_gateway(const std::string& file);

// Whether the configuration and all that it names can be used.
int check_config(const std::string& file);

// What is stored and not known to be at the broker.
int show_journal(const std::string& file, bool with_rows);

// Parses the command line and turns failures into exit codes.
int run_command_line(int argc, char** argv);

}  // namespace plc_gateway
