// Asks with select whether a socket can be read.
#pragma once

#include <sys/select.h>

namespace plc {

// select can only take these; others count as its failing.
inline bool is_selectable(int socket_fd) { return socket_fd >= 0 && socket_fd < FD_SETSIZE; }

// Waits until the socket is readable. Returns select's result; ready tells whether the socket was in the set.
inline int wait_readable(int socket_fd, timeval timeout, bool* ready) {
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
