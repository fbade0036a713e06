// The calls of the system that the driver makes in a transfer. They stand in this program, in front of the C library's:
// a driver that is loaded binds to them. While a call of the host is under way they are the network's
// (endure_network.h), else they are passed on.
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "tests/driver/endure/referee/endure_network.h"

using plc_endure::Network;

namespace {

constexpr int64_t kMicroseconds = 1000000;
constexpr int64_t kNanosecondsPerMicrosecond = 1000;

bool is_in_call() { return Network::is_in_call(); }

int64_t microseconds(const timeval* time) {
  return time == nullptr ? plc_endure::kNever : time->tv_sec * kMicroseconds + time->tv_usec;
}

int pass_on_select(int count, fd_set* readable, fd_set* writable, fd_set* failed, const timeval* timeout) {
  if (timeout == nullptr) return pselect(count, readable, writable, failed, nullptr, nullptr);
  const timespec wait = {timeout->tv_sec, timeout->tv_usec * kNanosecondsPerMicrosecond};
  return pselect(count, readable, writable, failed, &wait, nullptr);
}

}  // namespace

extern "C" {
#pragma GCC visibility push(default)

int connect(int fd, const sockaddr* address, socklen_t length) {
  if (!is_in_call()) return static_cast<int>(syscall(SYS_connect, fd, address, length));
  return Network::instance().on_connect(fd);
}

// The driver waits for one socket at a time, the highest of the set.
int select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
  if (!is_in_call()) return pass_on_select(count, readable, writable, failed, timeout);
  const int ready = Network::instance().on_select(count - 1, writable != nullptr, microseconds(timeout));
  if (ready == 0) {
    FD_ZERO(readable);
    if (writable != nullptr) FD_ZERO(writable);
  }
  return ready;
}

ssize_t send(int fd, const void* bytes, size_t count, int flags) {
  if (!is_in_call()) return sendto(fd, bytes, count, flags, nullptr, 0);
  return Network::instance().on_send(fd, static_cast<const uint8_t*>(bytes), count, flags);
}

ssize_t recv(int fd, void* bytes, size_t count, int flags) {
  if (!is_in_call()) return recvfrom(fd, bytes, count, flags, nullptr, nullptr);
  return Network::instance().on_receive(fd, static_cast<uint8_t*>(bytes), count, flags);
}

int close(int fd) {
  if (is_in_call()) Network::instance().on_close(fd);
  return static_cast<int>(syscall(SYS_close, fd));
}

int usleep(useconds_t us) {
  if (is_in_call()) {
    Network::instance().pass(us);
    return 0;
  }
  const timespec wait = {static_cast<time_t>(us / kMicroseconds),
                         static_cast<long>(us % kMicroseconds * kNanosecondsPerMicrosecond)};
  return nanosleep(&wait, nullptr);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!is_in_call()) return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
  Network::instance().tick();
  const int64_t now = Network::instance().now_us();
  time->tv_sec = static_cast<time_t>(now / kMicroseconds);
  time->tv_nsec = static_cast<long>(now % kMicroseconds * kNanosecondsPerMicrosecond);
  return 0;
}

#pragma GCC visibility pop
}
