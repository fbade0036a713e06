// Tests of the file that results go to, and of what is said when they do not get there.
#include "tools/plc_host/result_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "tests/support/temp_dir.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/stop_signal.h"

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

// What is said of two rows in a file that may have ten bytes, and what is in it then.
std::string said_of_ten_bytes(const plc_test::TempDir& folder) {
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit usual {};
  EXPECT_EQ(getrlimit(RLIMIT_FSIZE, &usual), 0);
  ResultFile file(open(folder.file("rows").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const struct rlimit small { 10, usual.rlim_max };
  EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  std::fputs("a row\nanother row\n", file.stream());
  const bool is_written = file.flush();
  // Nothing more is written once a piece is missing, though there were room for it again.
  setrlimit(RLIMIT_FSIZE, &usual);
  std::fputs("a third row\n", file.stream());
  EXPECT_FALSE(is_written);
  return finished(file, kExitOutput);
}

TEST(ResultFile, FullDisk_LeavesWholeRows) {
  const plc_test::TempDir folder;
  EXPECT_EQ(said_of_ten_bytes(folder),
            "plc-host: standard output cannot be written: File too large; 6 bytes were written\n");
  EXPECT_EQ(folder.read("rows"), "a row\n");
}

// What stands behind the cut row is somebody else's.
TEST(ResultFile, RowCutInTwoBeforeOtherBytes_IsSaid) {
  const plc_test::TempDir folder;
  folder.write("rows", "123456789012345");
  EXPECT_EQ(
      said_of_ten_bytes(folder),
      "plc-host: standard output cannot be written: File too large; 10 bytes were written, the last line is cut off\n");
  EXPECT_EQ(folder.read("rows"), "a row\nanot12345");
}

// A record that is longer than any buffer of the C library's own choice.
TEST(ResultFile, LongRow_IsWrittenAtOnce) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
  ResultFile file(ends[1]);
  const std::string row = std::string(100000, 'a') + "\n";
  std::fputs(row.c_str(), file.stream());
  EXPECT_TRUE(file.flush());
  std::string received(200000, ' ');
  EXPECT_EQ(read(ends[0], received.data(), received.size()), static_cast<ssize_t>(row.size()));
  close(ends[0]);
}

// Fills a pipe, so that the next write waits before its first byte.
std::string fill(int pipe_end) {
  const std::string bytes(static_cast<size_t>(fcntl(pipe_end, F_GETPIPE_SZ)), 'f');
  if (write(pipe_end, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) _exit(127);
  return bytes;
}

bool sleeps(pid_t main_thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(main_thread) + "/stat");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.find(") S ") != std::string::npos;
}

// The code of a command that is stopped while it waits for the reader of its row, in a process of its own: a stop is
// for all of it.
[[noreturn]] void write_while_stopped(bool is_read_on) {
  catch_stop_signals();
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) _exit(127);
  const std::string row = std::string(10000, 'a') + "\n";
  const std::string expected = fill(ends[1]) + row;
  std::string received;
  std::thread reader([&, writer = pthread_self()] {
    // More than once: the first may meet a thread that waits for something else.
    for (int i = 0; i < 20; ++i) {
      while (!sleeps(getpid())) std::this_thread::yield();
      pthread_kill(writer, SIGINT);
    }
    char piece[1000];
    while (is_read_on && received.size() < expected.size()) {
      const ssize_t got = read(ends[0], piece, sizeof piece);
      if (got <= 0) _exit(127);
      received.append(piece, static_cast<size_t>(got));
    }
  });
  ResultFile file(ends[1]);
  std::fputs(row.c_str(), file.stream());
  const int code = file.finish(kCode);
  if (code != kCode) _exit(code);
  reader.join();
  _exit(received == expected ? code : 127);
}

TEST(ResultFile, StopWhileTheReaderIsSlow_LosesNothing) {
  EXPECT_EXIT(write_while_stopped(true), testing::ExitedWithCode(kCode), "");
}

TEST(ResultFile, StopWhileNobodyReads_EndsTheWait) {
  EXPECT_EXIT(write_while_stopped(false), testing::ExitedWithCode(kExitOutput),
              "^plc-host: standard output cannot be written: Interrupted system call; 0 bytes were written\n$");
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
