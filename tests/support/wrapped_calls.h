// System calls that the unit tests see and steer: the linker sends the library's calls here first.
#ifndef TESTS_SUPPORT_WRAPPED_CALLS_H
#define TESTS_SUPPORT_WRAPPED_CALLS_H

#include <vector>

#include <sys/time.h>

namespace plc_test {

// What the wrapped calls did since reset(). Without a test's wish they do what the system does.
struct WrappedCalls {
  std::vector<unsigned> pauses_us;       // every usleep
  std::vector<timeval> select_timeouts;  // every select that was given a time-out
  int selects = 0;                       // every select
  int failed_resolutions = 0;            // how often resolving was made to fail
  bool fail_resolving = false;           // wish: gethostbyname knows no name
  bool skip_pauses = false;              // wish: usleep returns at once
  bool skip_selects = false;             // wish: select reports nothing readable at once

  void reset() { *this = WrappedCalls(); }
};

// The one record of this process.
WrappedCalls& wrapped_calls();

}  // namespace plc_test

#endif
