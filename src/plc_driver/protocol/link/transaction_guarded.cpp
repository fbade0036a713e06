// The guarded transaction: a reply is a whole frame that answers this request, and every failure closes the connection.
#include <errno.h>
#include <sys/socket.h>
#include <time.h>

#include <cstring>

#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/protocol/frames/wire_format.h"
#include "plc_driver/protocol/frames/wire_load.h"
#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/link/socket_wait.h"
#include "plc_driver/protocol/link/transaction.h"

namespace plc {
namespace {

constexpr uint32_t kDrainLimit = 65536;
constexpr uint32_t kLeastFrameBytes = 14;
constexpr long kSecondNs = 1000000000;
constexpr long kMicrosecondNs = 1000;

// How long the controller has for its reply, counted from the send, however many pieces come.
class ReplyWait {
 public:
  explicit ReplyWait(uint32_t seconds) : seconds_(seconds < INT32_MAX ? static_cast<time_t>(seconds) : INT32_MAX) {
    clock_gettime(CLOCK_MONOTONIC, &start_);
  }

  timeval whole() const { return {seconds_, 0}; }

  // What is left; 0 once the time is up.
  timeval left() const {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    time_t seconds = seconds_ - (now.tv_sec - start_.tv_sec);
    long nanoseconds = start_.tv_nsec - now.tv_nsec;
    if (nanoseconds < 0) {
      nanoseconds += kSecondNs;
      --seconds;
    }
    if (seconds < 0) return {0, 0};
    return {seconds, static_cast<suseconds_t>(nanoseconds / kMicrosecondNs)};
  }

 private:
  time_t seconds_;
  timespec start_;
};

// What has been received for one request, and how it is going.
struct Reception {
  uint32_t asked;         // the request's sequence number, class and command
  uint8_t* bytes;         // kReplyBytes
  uint32_t received = 0;  // of the frame that is under way, and of what came behind it
  uint32_t dropped = 0;   // whole frames that answer other requests
};

// Sequence number, class and command as one number.
uint32_t identity_of(const uint8_t* frame) { return load32(frame + kSequenceOffset); }
static_assert(kClassOffset == kSequenceOffset + 2 && kCommandOffset == kClassOffset + 1);

enum class Finding { kMore, kAnswer, kFailed };

[[gnu::cold, gnu::noinline]] Finding fail(const char* reason) {
  print_guard(reason);
  return Finding::kFailed;
}

// Tells what a receive that brought no byte means.
[[gnu::cold, gnu::noinline]] void print_end_of_connection(ssize_t received) {
  if (received == 0) {
    print_guard("connection closed by the controller");
  } else {
    print_connection_lost(errno);
  }
}

// A frame as long as the buffer leaves no room for what stands behind it: one more byte is asked for, without waiting.
bool has_more(int socket_fd) {
  uint8_t next;
  return recv(socket_fd, &next, sizeof next, MSG_PEEK | MSG_DONTWAIT) > 0;
}

bool is_frame_length(uint32_t counted, uint32_t complement) {
  return complement == ~counted && counted >= kLeastFrameBytes - kUncountedBytes &&
         counted <= kReplyBytes - kUncountedBytes;
}

// Looks at the frame that the received bytes begin with. Whole frames with another sequence number are dropped: a late
// reply to an earlier request, sent again or held up on its way.
Finding look_at(Reception* reception, int socket_fd) {
  constexpr uint32_t kLengthBytes = kComplementOffset + 4;
  while (reception->received >= kLengthBytes) {
    const uint32_t counted = load32(reception->bytes + kLengthOffset);
    if (!is_frame_length(counted, load32(reception->bytes + kComplementOffset))) {
      return fail("not a reply of this protocol");
    }
    const uint32_t frame_bytes = counted + kUncountedBytes;
    if (reception->received < frame_bytes) return Finding::kMore;
    const uint32_t difference = identity_of(reception->bytes) ^ reception->asked;
    const bool is_own = difference >> 16 == 0;
    if (is_own && difference != 0) return fail("reply to another request");
    if (is_own && (reception->received > frame_bytes || (frame_bytes == kReplyBytes && has_more(socket_fd)))) {
      return fail("bytes behind the reply");
    }
    if (is_own) return Finding::kAnswer;
    ++reception->dropped;
    reception->received -= frame_bytes;
    memmove(reception->bytes, reception->bytes + frame_bytes, reception->received);
  }
  return Finding::kMore;
}

// Receives what there is behind what came before.
Finding receive_more(Reception* reception, int socket_fd) {
  const ssize_t count = recv(socket_fd, reception->bytes + reception->received, kReplyBytes - reception->received, 0);
  if (count <= 0) {
    print_end_of_connection(count);
    return Finding::kFailed;
  }
  reception->received += static_cast<uint32_t>(count);
  return look_at(reception, socket_fd);
}

[[gnu::cold, gnu::noinline]] Finding time_out(const Reception& reception) {
  if (reception.received > 0) {
    print_cut_off(reception.received);
  } else {
    print_line("--timeout--");
  }
  return Finding::kFailed;
}

// Waits for the answer. The last look is taken when the time is up: no peer can make it longer.
Finding await_answer(Reception* reception, int socket_fd, const ReplyWait& wait) {
  timeval left = wait.whole();
  for (;;) {
    const bool is_last = left.tv_sec == 0 && left.tv_usec == 0;
    bool is_ready = false;
    if (wait_readable(socket_fd, left, &is_ready) < 0) {
      print_line("--err--");
      return Finding::kFailed;
    }
    if (is_ready) {
      const Finding finding = receive_more(reception, socket_fd);
      if (finding != Finding::kMore) return finding;
    }
    if (is_last || !is_ready) return time_out(*reception);
    left = wait.left();
  }
}

}  // namespace
}  // namespace plc

using namespace plc;

extern "C" {

// A wait that fails is left to the send, which fails too.
int EmptyBuffer(int socket_fd) {
  uint32_t discarded = 0;
  bool is_ready = false;
  while (wait_readable(socket_fd, {0, 0}, &is_ready) > 0 && is_ready) {
    const ssize_t count = recv(socket_fd, EmptyBuff, sizeof EmptyBuff, 0);
    if (count <= 0) {
      print_end_of_connection(count);
      return -1;
    }
    discarded += static_cast<uint32_t>(count);
    if (discarded > kDrainLimit) {
      print_guard("more than 65536 bytes waited before the request");
      return -1;
    }
  }
  return 0;
}

int send_e(const uint8_t* bytes, uint32_t length, ConnContext* conn) {
  if (EmptyBuffer(conn->socket_fd) < 0) {
    close_connection(conn);
    return -1;
  }
  const ssize_t sent = send(conn->socket_fd, bytes, length, 0);
  if (sent < 0) {
    print_send_error();
    close_connection(conn);
    return -1;
  }
  return static_cast<int>(sent);
}

int TransRecvSockBuff(const uint8_t* request, uint32_t length, uint8_t* reply, int32_t* reply_length,
                      ConnContext* conn) {
  if (send_e(request, length, conn) < 0) return -1;
  const ReplyWait wait(conn->recv_timeout_s);
  Reception reception = {length < kBodyOffset ? 0 : identity_of(request), reply};
  const Finding finding = await_answer(&reception, conn->socket_fd, wait);
  if (reception.dropped > 0) print_dropped(reception.dropped);
  if (finding != Finding::kAnswer) {
    close_connection(conn);
    return -1;
  }
  *reply_length = static_cast<int32_t>(reception.received);
  return 0;
}
}
