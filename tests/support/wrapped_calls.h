// System and library calls that the tests see and steer: the linker sends the driver's calls here first.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>

namespace plc_test {

constexpr int kNever = -1;

// What the wrapped calls did since reset(). Without a test's wish they do what the system does. The driver calls them
// from one thread; helper threads of tests use none of them.
struct WrappedCalls {
  std::vector<unsigned> pauses_us;          // every usleep
  std::vector<timeval> select_timeouts;     // every select that was given a time-out
  std::vector<std::string> exchange_calls;  // every select, send and recv, by name
  int selects = 0;                          // every select
  int failed_resolutions = 0;               // how often resolving was made to fail
  int failed_allocations = 0;               // how often memory was refused
  int failed_closes = 0;                    // how often a close was reported as failed
  int failed_options = 0;                   // how often getsockopt was made to fail
  bool fail_resolving = false;              // wish: gethostbyname knows no name
  bool fail_closing = false;                // wish: the next close closes and reports an error
  bool fail_options = false;                // wish: getsockopt fails
  bool skip_pauses = false;                 // wish: usleep returns at once
  bool skip_selects = false;                // wish: select reports nothing readable at once
  int allocations_until_failure = kNever;   // wish: after that many more, one malloc, calloc or realloc fails
  // wish: done before each call of that name is made
  std::function<void()> before_select;
  std::function<void()> before_send;
  std::function<void()> before_recv;
  // wish: instead of select, its result; the sets are passed on
  std::function<int(fd_set* readable, fd_set* writable)> instead_of_select;
  // wish: instead of connect, its result and errno
  std::function<int(const sockaddr* address, socklen_t length)> instead_of_connect;

  void reset() { *this = WrappedCalls(); }
};

// The one record of this process.
WrappedCalls& wrapped_calls();

}  // namespace plc_test
