// What plc-gateway tells the shell.
#pragma once

#include <stdexcept>
#include <string>

#include "base/standard_streams.h"

namespace plc_gateway {

// The codes are part of the program's contract, with the meanings that they have in plc-host.
enum ExitCode : int {
  kExitOk = 0,
  kExitFailed = 1,   // it could not start, or not go on
  kExitUsage = 2,    // the command line
  kExitLibrary = 3,  // the driver library cannot be loaded
  kExitConfig = 4,   // the configuration, or a tag file, cannot be used
  kExitOutput = 8,   // the journal, or the output, cannot be written
  kExitMemory = 9,   // there was no memory
};

// Ends a command with a message for standard error: "plc-gateway: " stands before it.
class GatewayError : public std::runtime_error {
 public:
  GatewayError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

// Throws GatewayError where what was printed just now is not on standard output.
inline void demand_written() {
  const std::string problem = plc_base::problem_with_output();
  if (!problem.empty()) throw GatewayError(kExitOutput, problem);
}

}  // namespace plc_gateway
