// Writes lines to standard error, each saying who speaks.
#include "tools/plc_host/messages.h"

#include <cstdio>

namespace plc_host {

void show_message(const std::string& text) { std::fprintf(stderr, "plc-host: %s\n", text.c_str()); }

void show_driver_line(const std::string& text) { std::fprintf(stderr, "driver: %s\n", text.c_str()); }

void show_simulator_line(const std::string& text) { std::fprintf(stderr, "plc-sim: %s\n", text.c_str()); }

}  // namespace plc_host
