// Asks with select whether a socket can be read.
#pragma once

#include <sys/select.h>

#include "plc_driver/protocol/link/connection.h"

namespace plc {

// Waits until the socket is readable. A function of its own in each file that waits: as small as the path needs it.
// Returns select's result; ready tells whether the socket was in the set.
static int wait_readable(int socket_fd, timeval timeout, bool* ready) {
  *ready = false;
  if (!is_selectable(socket_fd)) return -1;
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket_fd, &readable);
  const int result = select(socket_fd + 1, &readable, nullptr, nullptr, &timeout);
  *ready = result > 0 && FD_ISSET(socket_fd, &readable);
  return result;
}

}  // namespace plc
