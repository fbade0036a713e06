// Lines for standard error: everything that is not a result.
#pragma once

#include <string>

namespace plc_host {

// A line that says already who speaks.
void show_plain_line(const std::string& line);

// "plc-host: text"
void show_message(const std::string& text);

// The same of what went wrong.
void show_error(const std::string& text);

// A line of the driver: "driver: text"
void show_driver_line(const std::string& text);

// What went over the wire: "wire: text"
void show_frame_line(const std::string& text);

// A line of the simulator: "plc-sim: text"
void show_simulator_line(const std::string& text);

}  // namespace plc_host
