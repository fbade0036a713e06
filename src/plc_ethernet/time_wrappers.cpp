// Pauses, and the wait for a readable socket with the time-out of a connection record.
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "plc_ethernet.h"

namespace {

// Deliberate: one call never pauses longer, whatever the host asks for (D46).
constexpr uint32_t kLongestPauseMs = 1000;

// Milliseconds are spread over both fields, so that select takes any of them as valid. Seconds stop at 2^31 - 1, which
// a 32-bit time_t holds too: 68 years on every build instead of a failing select on some.
timeval form_timeout(const ConnContext& conn, uint32_t mode) {
  timeval timeout{};
  if (mode == 0) {
    const uint32_t seconds = conn.recv_timeout_s < INT32_MAX ? conn.recv_timeout_s : INT32_MAX;
    timeout.tv_sec = static_cast<time_t>(seconds);
  } else if (mode == 1) {
    timeout.tv_sec = static_cast<time_t>(conn.timeout_ms / 1000);
    timeout.tv_usec = static_cast<suseconds_t>(conn.timeout_ms % 1000 * 1000);
  }
  return timeout;
}

}  // namespace

int ev_sleep(uint32_t microseconds) { return usleep(microseconds); }

int ev_sleep_ms(uint32_t milliseconds) {
  if (milliseconds == 0) return 0;
  return usleep((milliseconds < kLongestPauseMs ? milliseconds : kLongestPauseMs) * 1000);
}

int ev_time_set(ConnContext* conn, uint32_t mode) {
  const int32_t socket_fd = conn->socket_fd;
  // A set has bits for 0..FD_SETSIZE-1 alone; any other number would be written beside it.
  if (socket_fd < 0 || socket_fd >= FD_SETSIZE) {
    errno = EBADF;
    return -1;
  }
  timeval timeout = form_timeout(*conn, mode);
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket_fd, &readable);
  return select(socket_fd + 1, &readable, nullptr, nullptr, &timeout);
}
