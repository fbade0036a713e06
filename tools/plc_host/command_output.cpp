// Opens the results on a descriptor of their own.
#include "tools/plc_host/command_output.h"

#include <fcntl.h>
#include <unistd.h>

namespace plc_host {

CommandOutput::CommandOutput() : results_(fcntl(original(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {}

}  // namespace plc_host
