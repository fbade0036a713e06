// Where a command's results go while the driver's lines are kept apart from them.
#ifndef HOST_TOOL_COMMAND_OUTPUT_H_
#define HOST_TOOL_COMMAND_OUTPUT_H_

#include <cstdio>

#include "client/driver/driver_output.h"
#include "result_file.h"

namespace plc_host {

class CommandOutput : public DriverOutput {
 public:
  // Throws HostError when standard output cannot be moved or is none.
  CommandOutput();

  // The standard output that the process was started with.
  FILE* results() const { return results_.stream(); }
  ResultFile& result_file() { return results_; }

 private:
  ResultFile results_;
};

}  // namespace plc_host

#endif  // HOST_TOOL_COMMAND_OUTPUT_H_
