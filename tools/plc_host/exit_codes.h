// What plc-host tells the shell, and the exception that carries such a code out of a command.
#pragma once

#include <stdexcept>
#include <string>

#include "client/client_error.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

// The codes are part of the tool's contract: docs/plc_host.md lists them.
enum ExitCode : int {
  kExitOk = 0,
  kExitTagFailed = 1,      // at least one tag has no value or was not written
  kExitUsage = 2,          // the command line or a value on it
  kExitLibrary = 3,        // the driver library cannot be loaded or lacks an entry point
  kExitTagFile = 4,        // the tag file cannot be read or the driver rejects it
  kExitVerifyDiffers = 5,  // read back different from what was sent
  kExitSimulator = 6,      // the simulator did not start, or its judge counted violations
  kExitNoConnection = 7,   // no variable was transferred whole, and the connection was the reason
  kExitOutput = 8,         // a result, or a file that was asked for, could not be written
  kExitMemory = 9,         // there was no memory
  kExitInterrupted = 130,  // ended by a signal before everything was done
  kExitReaderGone = 141,   // nobody reads the results any more: what a shell says of a program that SIGPIPE ends
};

// The code for a failure of what a command builds on.
inline ExitCode exit_code_of(const ClientError& error) {
  switch (error.kind()) {
    case ClientError::Kind::kLibrary:
      return kExitLibrary;
    case ClientError::Kind::kTagFile:
      return kExitTagFile;
    case ClientError::Kind::kOutput:
      break;
  }
  return kExitUsage;
}

// Ends a command with a message for standard error.
class HostError : public std::runtime_error {
 public:
  HostError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}
  ExitCode code() const { return code_; }

 private:
  ExitCode code_;
};

}  // namespace plc_host
