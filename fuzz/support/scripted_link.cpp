// The guarded driver's socket and clock.
#include "scripted_link.h"

#include <errno.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "exchange_referee.h"
#include "memory_files.h"
#include "scripted_controller.h"

namespace fuzz {
namespace {

constexpr int64_t kSecondNs = 1000000000;
constexpr int64_t kMicrosecondNs = 1000;

int failed_with(int error) {
  errno = error;
  return -1;
}

}  // namespace

ScriptedLink scripted_link;

void ScriptedLink::begin_run(int64_t now_ns) {
  is_running_ = true;
  now_ns_ = now_ns;
  next_ = 0;
  pieces_count_ = 0;
  used_room_ = 0;
  connect_event = ConnectEvent::kAtOnce;
  fail_next_wait = false;
  fail_next_send = false;
}

void ScriptedLink::add(Piece piece) {
  if (pieces_count_ == kMostPieces) return;
  // The stream keeps its order.
  if (pieces_count_ > next_ && pieces_[pieces_count_ - 1].at_ns > piece.at_ns) {
    piece.at_ns = pieces_[pieces_count_ - 1].at_ns;
  }
  pieces_[pieces_count_++] = piece;
}

void ScriptedLink::add_bytes(int64_t at_ns, const uint8_t* bytes, size_t count) {
  if (bytes != nullptr && count > 0) add({at_ns, bytes, count});
}

void ScriptedLink::add_end(int64_t at_ns, int error) { add({at_ns, nullptr, static_cast<size_t>(error)}); }

uint8_t* ScriptedLink::room(size_t count) {
  if (kRoomBytes - used_room_ < count) return nullptr;
  uint8_t* const at = room_ + used_room_;
  used_room_ += count;
  return at;
}

int ScriptedLink::connect() {
  connect_error_ = 0;
  next_ = 0;
  pieces_count_ = 0;
  referee.connects();
  switch (connect_event) {
    case ConnectEvent::kAtOnce:
      return 0;
    case ConnectEvent::kRefusedLater:
      connect_error_ = ECONNREFUSED;
      return failed_with(EINPROGRESS);
    case ConnectEvent::kRefusedAtOnce:
      referee.got_end();
      return failed_with(EHOSTUNREACH);
    default:
      return failed_with(EINPROGRESS);
  }
}

int ScriptedLink::wait_connected() {
  if (connect_error_ != 0) referee.got_end();
  if (connect_event == ConnectEvent::kTooLate || connect_event == ConnectEvent::kWaitFails) {
    referee.got_end();
    return connect_event == ConnectEvent::kTooLate ? 0 : failed_with(EINTR);
  }
  return 1;
}

int ScriptedLink::wait(int64_t timeout_ns) {
  referee.waits(timeout_ns, now_ns_);
  int result = 1;
  if (!has_arrived() && fail_next_wait) {
    fail_next_wait = false;
    result = failed_with(EINTR);
  } else if (!has_arrived()) {
    const int64_t end = now_ns_ + timeout_ns;
    const bool comes = next_ < pieces_count_ && pieces_[next_].at_ns <= end;
    now_ns_ = comes ? pieces_[next_].at_ns : end;
    result = comes ? 1 : 0;
  }
  referee.got_wait(result);
  return result;
}

long ScriptedLink::send(const uint8_t* bytes, size_t length) {
  if (fail_next_send) {
    fail_next_send = false;
    referee.got_send_error();
    return failed_with(EPIPE);
  }
  referee.sends(bytes, length, now_ns_, reply_wait_s);
  controller_answers(bytes, length);
  return static_cast<long>(length);
}

long ScriptedLink::receive(uint8_t* bytes, size_t length) {
  referee.receives();
  size_t count = 0;
  while (count < length && has_arrived() && pieces_[next_].bytes != nullptr) {
    Piece& piece = pieces_[next_];
    const size_t taken = piece.count < length - count ? piece.count : length - count;
    memcpy(bytes + count, piece.bytes, taken);
    count += taken;
    piece.bytes += taken;
    piece.count -= taken;
    if (piece.count == 0) ++next_;
  }
  if (count > 0) {
    referee.got_bytes(bytes, count);
    return static_cast<long>(count);
  }
  const int error = static_cast<int>(pieces_[next_].count);
  referee.got_end();
  return error == 0 ? 0 : failed_with(error);
}

long ScriptedLink::peek() {
  const bool has_more = has_arrived() && pieces_[next_].bytes != nullptr;
  const bool has_end = has_arrived() && !has_more;
  referee.got_peek(has_more);
  if (has_more) return 1;
  return has_end && pieces_[next_].count == 0 ? 0 : failed_with(EAGAIN);
}

void ScriptedLink::close() {
  referee.closes(now_ns_);
  next_ = 0;
  pieces_count_ = 0;
}

}  // namespace fuzz

using namespace fuzz;

extern "C" {

int __real_close(int descriptor);
int __real_clock_gettime(clockid_t clock, timespec* time);

int __wrap_socket(int, int, int) {
  return scripted_link.connect_event == ConnectEvent::kNoSocket ? failed_with(EMFILE) : ScriptedLink::kSocket;
}

int __wrap_connect(int descriptor, const sockaddr*, socklen_t) {
  return descriptor < 0 ? failed_with(EBADF) : scripted_link.connect();
}

int __wrap_fcntl(int, int, ...) { return 0; }
int __wrap_setsockopt(int, int, int, const void*, socklen_t) { return 0; }

int __wrap_getsockopt(int, int, int, void* value, socklen_t*) {
  const int error = scripted_link.connect_result();
  memcpy(value, &error, sizeof error);
  return 0;
}

int __wrap_close(int descriptor) {
  if (fuzz::is_memory_file(descriptor)) return 0;
  if (!scripted_link.is_running()) return __real_close(descriptor);
  if (descriptor != ScriptedLink::kSocket) accuse("closes a descriptor that is not its own");
  scripted_link.close();
  return 0;
}

int __wrap_usleep(useconds_t) { return 0; }

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set*, timeval* timeout) {
  if (!scripted_link.is_running()) return failed_with(EBADF);
  if (count != ScriptedLink::kSocket + 1) accuse("waits on a descriptor that is not its own");
  if (writable != nullptr) return scripted_link.wait_connected();
  if (timeout->tv_usec < 0 || timeout->tv_usec >= 1000000) accuse("waits for an impossible time");
  const int result = scripted_link.wait(timeout->tv_sec * kSecondNs + timeout->tv_usec * kMicrosecondNs);
  if (result == 0) FD_ZERO(readable);
  return result;
}

ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int) {
  if (descriptor != ScriptedLink::kSocket || !scripted_link.is_running()) return failed_with(EBADF);
  return scripted_link.send(static_cast<const uint8_t*>(bytes), length);
}

ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags) {
  if (descriptor != ScriptedLink::kSocket) accuse("receives from a descriptor that is not its own");
  if ((flags & MSG_PEEK) == 0) return scripted_link.receive(static_cast<uint8_t*>(bytes), length);
  referee.peeks(length, (flags & MSG_DONTWAIT) == 0);
  const ssize_t result = scripted_link.peek();
  if (result > 0) memset(bytes, 0, length);
  return result;
}

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (!scripted_link.is_running()) return __real_clock_gettime(clock, time);
  referee.asks_time(clock == CLOCK_MONOTONIC);
  time->tv_sec = static_cast<time_t>(scripted_link.now_ns() / kSecondNs);
  time->tv_nsec = static_cast<long>(scripted_link.now_ns() % kSecondNs);
  return 0;
}
}
