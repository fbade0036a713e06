// Programs that are started with closed standard streams.
#include "base/standard_streams.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace {

// What `look` says in a child without these standard streams.
int exit_code_without(std::initializer_list<int> streams, int (*look)()) {
  const pid_t child = fork();
  if (child == 0) {
    for (const int stream : streams) close(stream);
    plc_base::prepare_standard_streams();
    _exit(look());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(StandardStreams, FileThatIsOpened_IsNoneOfThem) {
  for (const auto& closed : {std::initializer_list<int>{0}, {1}, {2}, {0, 1, 2}}) {
    const int opened = exit_code_without(closed, [] { return open("/dev/null", O_RDONLY | O_CLOEXEC); });
    EXPECT_GT(opened, STDERR_FILENO);
  }
}

TEST(StandardStreams, WriteToAClosedOne_FailsAsBefore) {
  const int code = exit_code_without({1, 2}, [] {
    const bool is_refused = write(STDOUT_FILENO, "x", 1) < 0 && errno == EBADF;
    return is_refused && write(STDERR_FILENO, "x", 1) < 0 && errno == EBADF ? 0 : 1;
  });
  EXPECT_EQ(code, 0);
}

TEST(StandardStreams, WriteBeyondTheLimitOfAFile_FailsAndEndsNothing) {
  const int code = exit_code_without({}, [] {
    const rlimit none{0, 0};
    FILE* file = std::tmpfile();
    if (file == nullptr || setrlimit(RLIMIT_FSIZE, &none) != 0) return 1;
    return write(fileno(file), "x", 1) < 0 && errno == EFBIG ? 0 : 2;
  });
  EXPECT_EQ(code, 0);
}

TEST(StandardStreams, ClosedInput_IsAtItsEnd) {
  const int code = exit_code_without({0}, [] {
    char byte = 0;
    return read(STDIN_FILENO, &byte, 1) == 0 ? 0 : 1;
  });
  EXPECT_EQ(code, 0);
}

TEST(StandardStreams, OpenOnes_StayWhatTheyAre) {
  const int code = exit_code_without({}, [] { return write(STDERR_FILENO, "", 0) == 0 ? 0 : 1; });
  EXPECT_EQ(code, 0);
}

}  // namespace
