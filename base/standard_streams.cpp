// Opens the null device the wrong way round for output.
#include "base/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace plc_base {

void prepare_standard_streams() {
  std::signal(SIGXFSZ, SIG_IGN);
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    // The lowest number that is free is this one. Programs that are started from here are to have it too.
    if (open("/dev/null", O_RDONLY) != stream) return;
  }
}

}  // namespace plc_base
