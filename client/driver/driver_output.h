// Collects what the driver prints.
//
// The driver prints on standard output. For the life of this object standard output is a file in memory that only
// take_lines reads; what the process was started with is kept beside it.
#pragma once

#include <string>
#include <vector>

namespace plc_client::core {

class DriverOutput {
 public:
  // Throws ClientError when standard output cannot be moved.
  DriverOutput();
  ~DriverOutput();
  DriverOutput(const DriverOutput&) = delete;
  DriverOutput& operator=(const DriverOutput&) = delete;

  // The standard output that the process was started with; -1 when there was none. It stays this object's.
  int original() const { return original_; }

  // What has been printed since the last call, a line each, without line ends.
  std::vector<std::string> take_lines();

 private:
  int original_;
  int collected_ = -1;
};

// The lines of a text in which "\r" is no part of a line.
std::vector<std::string> split_lines(const std::string& text);

}  // namespace plc_client::core
