// Where a command's results go while the driver's lines are kept apart from them.
#pragma once

#include <cstdio>

#include "client/driver/driver_output.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/result_file.h"

namespace plc_host {

class CommandOutput : public DriverOutput {
 public:
  // Throws ClientError when standard output cannot be moved, HostError when it is none.
  CommandOutput();

  // The standard output that the process was started with.
  FILE* results() const { return results_.stream(); }
  ResultFile& result_file() { return results_; }

 private:
  ResultFile results_;
};

}  // namespace plc_host
