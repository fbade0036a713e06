// Opens the null device the wrong way round for output.
#include "base/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace plc_base {
namespace {

bool found_input_closed = false;

}  // namespace

bool was_input_closed() { return found_input_closed; }

std::string problem_with_output() {
  if (std::ferror(stdout) == 0 && std::fflush(stdout) == 0) return {};
  return std::string("standard output cannot be written: ") + std::strerror(errno);
}

void prepare_standard_streams() {
  std::signal(SIGXFSZ, SIG_IGN);
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    found_input_closed = found_input_closed || stream == STDIN_FILENO;
    // The lowest number that is free is this one. Programs that are started from here are to have it too.
    if (open("/dev/null", O_RDONLY) != stream) return;
  }
}

}  // namespace plc_base
