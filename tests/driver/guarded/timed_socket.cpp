// The wrapped calls of timed_socket.h.
#include "tests/driver/guarded/timed_socket.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace plc_test {
namespace {

constexpr int64_t kMillisecondUs = 1000;
constexpr int64_t kSecondUs = 1000000;

TimedSocket* current = nullptr;

// Only one test at a time speaks with the driver, and the driver has one socket.
TimedSocket& socket_of(int descriptor) {
  if (current == nullptr || descriptor != TimedSocket::kDescriptor) std::abort();
  return *current;
}

}  // namespace

TimedSocket::TimedSocket() { current = this; }
TimedSocket::~TimedSocket() { current = nullptr; }

void TimedSocket::note(const char* call) {
  calls_ += calls_.empty() ? "" : " ";
  calls_ += call;
}

void TimedSocket::add(Arrival arrival) {
  arrival.after_ms += now_us_ / kMillisecondUs;
  arrivals_.push_back(std::move(arrival));
}

void TimedSocket::leave_waiting(Arrival arrival) { add(std::move(arrival)); }

int TimedSocket::on_connect() {
  note("connect");
  ++connects_;
  if (connect_error == 0) return 0;
  errno = connect_error;
  connect_error = 0;
  return -1;
}

int TimedSocket::on_select(int64_t timeout_us) {
  note("select");
  if (fail_select) {
    fail_select = false;
    errno = EINTR;
    return -1;
  }
  if (!has_arrived()) {
    const int64_t end = now_us_ + timeout_us;
    const int64_t next = arrivals_.empty() ? INT64_MAX : arrivals_.front().after_ms * kMillisecondUs;
    now_us_ = std::min(end, next);
  }
  return has_arrived() ? 1 : 0;
}

long TimedSocket::on_send(const uint8_t* bytes, size_t length) {
  note("send");
  if (fail_send) {
    fail_send = false;
    errno = EPIPE;
    return -1;
  }
  requests_.emplace_back(bytes, bytes + length);
  if (controller_) {
    for (Arrival& arrival : controller_(requests_.back())) add(std::move(arrival));
  }
  return static_cast<long>(length);
}

long TimedSocket::on_receive(uint8_t* bytes, size_t length, bool is_peek) {
  note(is_peek ? "peek" : "recv");
  if (!has_arrived()) {
    if (!is_peek) std::abort();  // a receive that would wait for ever
    errno = EAGAIN;
    return -1;
  }
  now_us_ += receive_takes_ms * kMillisecondUs;
  Arrival& next = arrivals_.front();
  if (next.kind == Arrival::Kind::kClose) return 0;
  if (next.kind == Arrival::Kind::kError) {
    errno = next.error;
    return -1;
  }
  const size_t taken = std::min(length, next.bytes.size());
  std::copy_n(next.bytes.begin(), taken, bytes);
  if (!is_peek) {
    next.bytes.erase(next.bytes.begin(), next.bytes.begin() + static_cast<std::ptrdiff_t>(taken));
    if (next.bytes.empty()) arrivals_.pop_front();
  }
  return static_cast<long>(taken);
}

void TimedSocket::on_close() {
  note("close");
  ++closes_;
  arrivals_.clear();
}

}  // namespace plc_test

using plc_test::socket_of;
using plc_test::TimedSocket;

extern "C" {

int __wrap_socket(int domain, int type, int protocol);
int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length);
int __wrap_setsockopt(int descriptor, int level, int option, const void* value, socklen_t length);
int __wrap_fcntl(int descriptor, int command, ...);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int flags);
ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags);
int __real_close(int descriptor);
int __wrap_close(int descriptor);
int __real_clock_gettime(clockid_t clock, timespec* time);
int __wrap_clock_gettime(clockid_t clock, timespec* time);

int __wrap_socket(int, int, int) { return TimedSocket::kDescriptor; }

int __wrap_connect(int descriptor, const sockaddr*, socklen_t) { return socket_of(descriptor).on_connect(); }

int __wrap_setsockopt(int, int, int, const void*, socklen_t) { return 0; }

int __wrap_fcntl(int, int, ...) { return 0; }

int __wrap_select(int count, fd_set* readable, fd_set*, fd_set*, timeval* timeout) {
  if (timeout->tv_sec < 0 || timeout->tv_usec < 0 || timeout->tv_usec >= plc_test::kSecondUs) {
    std::abort();  // no time that select takes
  }
  const int ready =
      socket_of(count - 1).on_select(int64_t{timeout->tv_sec} * plc_test::kSecondUs + int64_t{timeout->tv_usec});
  if (ready == 0) FD_ZERO(readable);
  return ready;
}

ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int flags) {
  if (flags != 0) std::abort();
  if (descriptor < 0) {
    errno = EBADF;
    return -1;
  }
  return socket_of(descriptor).on_send(static_cast<const uint8_t*>(bytes), length);
}

ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags) {
  if (flags != 0 && flags != (MSG_PEEK | MSG_DONTWAIT)) std::abort();  // other bytes, or a wait that may not end
  return socket_of(descriptor).on_receive(static_cast<uint8_t*>(bytes), length, flags != 0);
}

int __wrap_close(int descriptor) {
  if (descriptor != TimedSocket::kDescriptor) return __real_close(descriptor);
  socket_of(descriptor).on_close();
  return 0;
}

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (plc_test::current == nullptr) return __real_clock_gettime(clock, time);
  if (clock != CLOCK_MONOTONIC) std::abort();  // a clock that can be set
  constexpr int64_t kSecondNs = plc_test::kSecondUs * 1000;
  const int64_t now_ns = plc_test::current->look_ns();
  time->tv_sec = static_cast<time_t>(now_ns / kSecondNs);
  time->tv_nsec = static_cast<long>(now_ns % kSecondNs);
  return 0;
}

}  // extern "C"
