// Seeds the C library's random generator from the clock.
#include <sys/time.h>

#include <cstdlib>

#include "universal_api.h"

void ev_srand(void) {
  timeval now{};
  gettimeofday(&now, nullptr);
  std::srand(static_cast<unsigned>(now.tv_sec) + static_cast<unsigned>(now.tv_usec));
}
