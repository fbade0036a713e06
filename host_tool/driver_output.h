// Keeps what the driver prints apart from the results of plc-host.
//
// The driver prints on standard output. For the life of this object standard output is a file in memory that only
// take_lines reads; the results go to the standard output that the process was started with.
#ifndef HOST_TOOL_DRIVER_OUTPUT_H_
#define HOST_TOOL_DRIVER_OUTPUT_H_

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "result_file.h"

namespace plc_host {

class DriverOutput {
 public:
  // Throws HostError when standard output cannot be moved.
  DriverOutput();
  ~DriverOutput();
  DriverOutput(const DriverOutput&) = delete;
  DriverOutput& operator=(const DriverOutput&) = delete;

  // The standard output that the process was started with.
  FILE* results() const { return results_->stream(); }
  ResultFile& result_file() const { return *results_; }

  // What has been printed since the last call, a line each, without line ends.
  std::vector<std::string> take_lines();

 private:
  std::unique_ptr<ResultFile> results_;
  int collected_ = -1;
};

// The lines of a text in which "\r" is no part of a line.
std::vector<std::string> split_lines(const std::string& text);

}  // namespace plc_host

#endif  // HOST_TOOL_DRIVER_OUTPUT_H_
