// What plc-sim says: lines on standard error, answers on standard output.
#pragma once

#include <string>

namespace plc_sim {

// One line, whatever stands in it.
void print_error(const std::string& line);

// Whole lines of plc-sim's own. 0 when all of them were written, else the system's number of what went wrong.
int print_output(const std::string& text);

// A path at the beginning of a line; one that would look like the word of a speaker is given from the folder it is in.
std::string shown_path(const std::string& path);

}  // namespace plc_sim
