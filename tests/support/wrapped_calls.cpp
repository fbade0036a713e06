// The wrapped system calls of wrapped_calls.h.
#include "support/wrapped_calls.h"

#include <netdb.h>
#include <sys/select.h>
#include <unistd.h>

namespace plc_test {

WrappedCalls& wrapped_calls() {
  static WrappedCalls calls;
  return calls;
}

}  // namespace plc_test

using plc_test::wrapped_calls;

extern "C" {

int __real_usleep(useconds_t microseconds);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
hostent* __real_gethostbyname(const char* name);

int __wrap_usleep(useconds_t microseconds);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout);
hostent* __wrap_gethostbyname(const char* name);

int __wrap_usleep(useconds_t microseconds) {
  wrapped_calls().pauses_us.push_back(microseconds);
  return wrapped_calls().skip_pauses ? 0 : __real_usleep(microseconds);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* failing, timeval* timeout) {
  ++wrapped_calls().selects;
  if (timeout != nullptr) {
    wrapped_calls().select_timeouts.push_back(*timeout);
  }
  return wrapped_calls().skip_selects ? 0 : __real_select(count, readable, writable, failing, timeout);
}

hostent* __wrap_gethostbyname(const char* name) {
  if (wrapped_calls().fail_resolving) {
    ++wrapped_calls().failed_resolutions;
    return nullptr;
  }
  return __real_gethostbyname(name);
}

}  // extern "C"
