// Lines for standard error: everything that is not a result.
#pragma once

#include <cstdint>
#include <string>

namespace plc_host {

// "plc-host: text"
void show_message(const std::string& text);

// "1 batch read", "3 batch reads"
std::string counted(uint64_t number, const std::string& what);

// A line of the driver: "driver: text"
void show_driver_line(const std::string& text);

// A line of the simulator: "plc-sim: text"
void show_simulator_line(const std::string& text);

}  // namespace plc_host
