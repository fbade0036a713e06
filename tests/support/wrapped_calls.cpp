// The wrapped calls of wrapped_calls.h.
#include "tests/support/wrapped_calls.h"

#include <netdb.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace plc_test {

WrappedCalls& wrapped_calls() {
  static WrappedCalls calls;
  return calls;
}

namespace {

void note_exchange_call(const char* name, const std::function<void()>& before) {
  wrapped_calls().exchange_calls.emplace_back(name);
  if (before) before();
}

bool is_allocation_refused() {
  int& left = wrapped_calls().allocations_until_failure;
  if (left == kNever) return false;
  if (left-- > 0) return false;
  ++wrapped_calls().failed_allocations;
  errno = ENOMEM;
  return true;
}

}  // namespace
}  // namespace plc_test

using plc_test::wrapped_calls;

extern "C" {

int __real_usleep(useconds_t microseconds);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
hostent* __real_gethostbyname(const char* name);
ssize_t __real_send(int descriptor, const void* bytes, size_t length, int flags);
ssize_t __real_recv(int descriptor, void* bytes, size_t length, int flags);
int __real_getsockopt(int descriptor, int level, int option, void* value, socklen_t* length);
int __real_connect(int descriptor, const sockaddr* address, socklen_t length);
int __real_close(int descriptor);
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);

int __wrap_usleep(useconds_t microseconds);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
hostent* __wrap_gethostbyname(const char* name);
ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int flags);
ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags);
int __wrap_getsockopt(int descriptor, int level, int option, void* value, socklen_t* length);
int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length);
int __wrap_close(int descriptor);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);

int __wrap_usleep(useconds_t microseconds) {
  wrapped_calls().pauses_us.push_back(microseconds);
  return wrapped_calls().skip_pauses ? 0 : __real_usleep(microseconds);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout) {
  ++wrapped_calls().selects;
  if (timeout != nullptr) wrapped_calls().select_timeouts.push_back(*timeout);
  plc_test::note_exchange_call("select", wrapped_calls().before_select);
  if (wrapped_calls().instead_of_select) return wrapped_calls().instead_of_select(readable, writable);
  return wrapped_calls().skip_selects ? 0 : __real_select(count, readable, writable, failing, timeout);
}

hostent* __wrap_gethostbyname(const char* name) {
  if (wrapped_calls().fail_resolving) {
    ++wrapped_calls().failed_resolutions;
    return nullptr;
  }
  return __real_gethostbyname(name);
}

ssize_t __wrap_send(int descriptor, const void* bytes, size_t length, int flags) {
  plc_test::note_exchange_call("send", wrapped_calls().before_send);
  return __real_send(descriptor, bytes, length, flags);
}

ssize_t __wrap_recv(int descriptor, void* bytes, size_t length, int flags) {
  plc_test::note_exchange_call("recv", wrapped_calls().before_recv);
  return __real_recv(descriptor, bytes, length, flags);
}

int __wrap_getsockopt(int descriptor, int level, int option, void* value, socklen_t* length) {
  if (wrapped_calls().fail_options) {
    ++wrapped_calls().failed_options;
    errno = ENOBUFS;
    return -1;
  }
  return __real_getsockopt(descriptor, level, option, value, length);
}

int __wrap_connect(int descriptor, const sockaddr* address, socklen_t length) {
  return wrapped_calls().instead_of_connect ? wrapped_calls().instead_of_connect(address, length)
                                            : __real_connect(descriptor, address, length);
}

int __wrap_close(int descriptor) {
  const int result = __real_close(descriptor);
  if (!wrapped_calls().fail_closing) return result;
  wrapped_calls().fail_closing = false;
  ++wrapped_calls().failed_closes;
  errno = EIO;
  return -1;
}

void* __wrap_malloc(size_t size) { return plc_test::is_allocation_refused() ? nullptr : __real_malloc(size); }

void* __wrap_calloc(size_t count, size_t size) {
  return plc_test::is_allocation_refused() ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* block, size_t size) {
  return plc_test::is_allocation_refused() ? nullptr : __real_realloc(block, size);
}

}  // extern "C"
