// The driver's system calls, answered from memory.
#include "memory_transport.h"

#include <errno.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cstring>

namespace fuzz {
namespace {

constexpr int kSocket = 5;
constexpr size_t kReceiveLimit = 4096;

// What an input's next byte makes of the next wait for a reply.
enum Event : uint8_t { kSelectFails = 251, kTimeOut, kNotReady, kReceiveFails, kClosed };

Input* replies;
uint64_t requests;
uint8_t event;
volatile uint32_t check_sum;

// Bytes of the request that a head speaks of must be there: a request is never cut or overlong.
void check_request(const uint8_t* bytes, size_t length) {
  if (length < 14 || length > kReceiveLimit || bytes == nullptr) abort();
  uint32_t sum = 0;
  for (size_t i = 10; i < length; i += 8) sum += bytes[i];
  sum += bytes[length - 1];  // the last byte lies within the request's buffer, or the sanitizer says so
  check_sum = sum;
  for (size_t i = 0; i < 4; ++i) {
    if ((bytes[i] ^ bytes[i + 4]) != 0xFF) abort();
  }
}

// A reply: some bytes of the input, repeated to the length that the input names.
size_t fill_reply(uint8_t* out) {
  const size_t length = replies->word() % (kReceiveLimit + 1);
  const size_t pattern = 1 + size_t{replies->byte()};
  size_t filled = replies->copy_bytes(out, pattern < length ? pattern : length);
  if (filled == 0) {
    memset(out, 0, length);
    return length;
  }
  for (; filled < length; filled *= 2) memcpy(out + filled, out, filled < length - filled ? filled : length - filled);
  return length;
}

}  // namespace

void feed_replies(Input* input) { replies = input; }

uint64_t sent_requests() { return requests; }

}  // namespace fuzz

using namespace fuzz;

extern "C" {

int __wrap_socket(int, int, int) { return kSocket; }
int __wrap_connect(int, const sockaddr*, socklen_t) { return 0; }
int __wrap_fcntl(int, int, ...) { return 0; }
int __wrap_setsockopt(int, int, int, const void*, socklen_t) { return 0; }
int __wrap_getsockopt(int, int, int, void*, socklen_t*) { return 0; }
int __wrap_close(int) { return 0; }
int __wrap_usleep(useconds_t) { return 0; }

int __wrap_select(int, fd_set* readable, fd_set*, fd_set*, timeval* timeout) {
  const bool drain = timeout->tv_sec == 0 && timeout->tv_usec == 0;
  if (drain) return 0;
  event = replies == nullptr ? static_cast<uint8_t>(kClosed) : replies->byte();
  if (event == kSelectFails) {
    errno = EINTR;
    return -1;
  }
  if (event == kTimeOut) return 0;
  if (event == kNotReady) FD_ZERO(readable);
  return 1;
}

ssize_t __wrap_send(int, const void* bytes, size_t length, int) {
  check_request(static_cast<const uint8_t*>(bytes), length);
  ++requests;
  if (replies != nullptr && replies->empty()) {  // an input that is used up ends long runs of exchanges
    errno = EPIPE;
    return -1;
  }
  return static_cast<ssize_t>(length);
}

ssize_t __wrap_recv(int, void* bytes, size_t length, int) {
  if (event == kReceiveFails) {
    errno = ECONNRESET;
    return -1;
  }
  if (event == kClosed || length < kReceiveLimit) return 0;
  return static_cast<ssize_t>(fill_reply(static_cast<uint8_t*>(bytes)));
}
}
