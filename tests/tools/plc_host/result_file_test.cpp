// Tests of the file that results go to, and of what is said when they do not get there.
#include "tools/plc_host/result_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "tools/plc_host/exit_codes.h"

namespace plc_host {
namespace {

constexpr int kCode = 5;  // of a command

std::string finished(ResultFile& file, int expected) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(file.finish(kCode), expected);
  return testing::internal::GetCapturedStderr();
}

TEST(ResultFile, EverythingWritten_KeepsTheCommandsCode) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  ResultFile file(ends[1]);
  std::fputs("a row\n", file.stream());
  EXPECT_TRUE(file.flush());
  EXPECT_EQ(finished(file, kCode), "");
  char text[16];
  EXPECT_EQ(read(ends[0], text, sizeof text), 6);
  close(ends[0]);
}

TEST(ResultFile, FullDevice_HasACodeAndAMessage) {
  ResultFile file(open("/dev/full", O_WRONLY | O_CLOEXEC));
  std::fputs("a row\n", file.stream());
  EXPECT_FALSE(file.flush());
  EXPECT_EQ(finished(file, kExitOutput),
            "plc-host: standard output cannot be written: No space left on device; 0 bytes were written\n");
}

TEST(ResultFile, FullDevice_IsNoticedAtTheEndAtTheLatest) {
  ResultFile file(open("/dev/full", O_WRONLY | O_CLOEXEC));
  std::fputs("a row\n", file.stream());
  EXPECT_NE(finished(file, kExitOutput), "");
}

TEST(ResultFile, ReaderWhoHasGone_EndsItQuietly) {
  signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  ResultFile file(ends[1]);
  std::fputs("a row\n", file.stream());
  EXPECT_FALSE(file.flush());
  EXPECT_EQ(finished(file, kCode), "");
}

TEST(ResultFile, RowCutInTwo_IsSaid) {
  std::string path = testing::TempDir() + "result_file.XXXXXX";
  const int descriptor = mkstemp(path.data());
  ASSERT_GE(descriptor, 0);
  unlink(path.c_str());
  struct rlimit usual {};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  ResultFile file(descriptor);
  const struct rlimit small { 10, usual.rlim_max };
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  std::fputs("a row\nanother row\n", file.stream());
  const bool is_written = file.flush();
  // Nothing more is written once a piece is missing, though there were room for it again.
  setrlimit(RLIMIT_FSIZE, &usual);
  std::fputs("a third row\n", file.stream());
  EXPECT_FALSE(is_written);
  EXPECT_EQ(
      finished(file, kExitOutput),
      "plc-host: standard output cannot be written: File too large; 10 bytes were written, the last line is cut off\n");
}

TEST(ResultFile, ClosedDescriptor_IsNoFile) {
  try {
    ResultFile file(-1);
    FAIL();
  } catch (const HostError& error) {
    EXPECT_EQ(error.code(), kExitOutput);
  }
}

}  // namespace
}  // namespace plc_host
