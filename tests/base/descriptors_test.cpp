// What a process learns of its own limit.
#include "base/descriptors.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(Descriptors, ThatCanBeHad_AreNoProblemTwice) {
  EXPECT_EQ(plc_base::problem_with_descriptors(10), "");
  EXPECT_EQ(plc_base::problem_with_descriptors(10), "");
}

TEST(Descriptors, BeyondTheLimit_AreAProblem) {
  const pid_t child = fork();
  if (child == 0) {
    const rlimit limit{10, 10};
    setrlimit(RLIMIT_NOFILE, &limit);
    _exit(plc_base::problem_with_descriptors(10) == "Too many open files" ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
