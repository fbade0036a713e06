// What the lines that the driver prints mean, and what to try.
#ifndef HOST_TOOL_DRIVER_LINES_H_
#define HOST_TOOL_DRIVER_LINES_H_

#include <string>

namespace plc_host {

struct LineMeaning {
  const char* part;  // of the line
  const char* meaning;
  const char* advice;
};

// Null for a line that tells of no failure.
const LineMeaning* meaning_of_line(const std::string& line);

}  // namespace plc_host

#endif  // HOST_TOOL_DRIVER_LINES_H_
