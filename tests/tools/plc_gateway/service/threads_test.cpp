// What a process learns of the threads that it may start.
#include "tools/plc_gateway/service/threads.h"

#include <gtest/gtest.h>

#include "tests/tools/plc_gateway/support/without_threads.h"

namespace {

TEST(Threads, ThatCanBeHad_AreNoProblemTwice) {
  EXPECT_EQ(plc_gateway::problem_with_threads(8), "");
  EXPECT_EQ(plc_gateway::problem_with_threads(8), "");
}

TEST(Threads, WithoutRoom_AreAProblemUntilThereIsSome) {
  {
    const plc_gateway_test::WithoutRoomForThreads limit;
    EXPECT_EQ(plc_gateway::problem_with_threads(1), "Resource temporarily unavailable");
    EXPECT_EQ(plc_gateway::problem_with_threads(0), "");
  }
  EXPECT_EQ(plc_gateway::problem_with_threads(1), "");
}

}  // namespace
