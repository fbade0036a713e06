// Tests of the clock seed.
#include <gtest/gtest.h>

#include <sys/time.h>

#include <cstdlib>

#include "universal_api.h"

namespace {

TEST(EvSrand, Generator_IsSeededWithSecondsPlusMicroseconds) {
  timeval before{};
  timeval after{};
  gettimeofday(&before, nullptr);
  ev_srand();
  gettimeofday(&after, nullptr);
  const int first = std::rand();
  const int second = std::rand();

  // The seed was taken at one of the microseconds between the two readings of the clock.
  constexpr int kLongestGapUs = 1000000;
  const int64_t gap_us =
      (static_cast<int64_t>(after.tv_sec) - before.tv_sec) * 1000000 + after.tv_usec - before.tv_usec;
  ASSERT_GE(gap_us, 0);
  ASSERT_LE(gap_us, kLongestGapUs);
  bool is_found = false;
  for (int64_t passed_us = 0; passed_us <= gap_us && !is_found; ++passed_us) {
    const int64_t us = before.tv_usec + passed_us;
    const int64_t seed = before.tv_sec + us / 1000000 + us % 1000000;
    std::srand(static_cast<unsigned>(seed));
    is_found = std::rand() == first && std::rand() == second;
  }
  EXPECT_TRUE(is_found);
}

}  // namespace
