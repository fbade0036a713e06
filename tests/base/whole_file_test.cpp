// Tests of files that a user asked for: whole or as before, through no link, over nothing that was read.
#include "base/whole_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tests/support/temp_dir.h"

namespace plc_base {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> names_in(const plc_test::TempDir& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder.path())) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

using Names = std::vector<std::string>;

mode_t permissions_of(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777U;
}

void close_opened(const OpenedFile& file) {
  ASSERT_GE(file.descriptor, 0) << file.problem;
  ASSERT_EQ(close(file.descriptor), 0);
}

// So long as it lives, files end at this size and the signal for it is ignored.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) : previous_signal_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &previous_);
    struct rlimit limit = previous_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &previous_);
    signal(SIGXFSZ, previous_signal_);
  }

 private:
  void (*previous_signal_)(int);
  struct rlimit previous_ {};
};

TEST(WholeFile, FileToBeKept_StaysAsItWas) {
  const plc_test::TempDir folder;
  const std::string path = folder.file("old");
  EXPECT_EQ(write_whole_file(path, "old", {}, OldFile::kKept), "");
  EXPECT_EQ(write_whole_file(path, "new", {}, OldFile::kKept), "there is a file of this name");
  EXPECT_EQ(folder.read("old"), "old");
  EXPECT_EQ(names_in(folder), Names{"old"});
  EXPECT_EQ(write_whole_file(path, "new", {}, OldFile::kReplaced), "");
  EXPECT_EQ(folder.read("old"), "new");
}

TEST(WholeFile, NewFile_HasEveryByteAndTheUsualPermissions) {
  const plc_test::TempDir folder;
  const mode_t previous = umask(027);
  EXPECT_EQ(write_whole_file(folder.file("new"), std::string_view("a\0b\n", 4), {}), "");
  umask(previous);
  EXPECT_EQ(folder.read("new"), std::string("a\0b\n", 4));
  EXPECT_EQ(permissions_of(folder.file("new")), 0640U);
  EXPECT_EQ(names_in(folder), Names{"new"});
}

TEST(WholeFile, OldFile_IsReplacedWithItsPermissions) {
  const plc_test::TempDir folder;
  const std::string path = folder.write("old", "what was there before");
  fs::permissions(path, fs::perms(0664));
  EXPECT_EQ(write_whole_file(path, "new", {}), "");
  EXPECT_EQ(folder.read("old"), "new");
  EXPECT_EQ(permissions_of(path), 0664U);
  EXPECT_EQ(names_in(folder), Names{"old"});
}

TEST(WholeFile, NameWithoutAFolder_IsInTheWorkingDirectory) {
  const plc_test::TempDir folder;
  const plc_test::ScopedWorkingDirectory here(folder.path());
  EXPECT_EQ(write_whole_file("new", "a", {}), "");
  EXPECT_EQ(names_in(folder), Names{"new"});
}

TEST(WholeFile, SymbolicLink_IsRefused) {
  const plc_test::TempDir folder;
  const std::string victim = folder.write("victim", "mine");
  fs::create_symlink(victim, folder.file("link"));
  fs::create_symlink(folder.file("nowhere"), folder.file("dangling"));
  EXPECT_EQ(write_whole_file(folder.file("link"), "new", {}), "it is a symbolic link");
  EXPECT_EQ(write_whole_file(folder.file("dangling"), "new", {}), "it is a symbolic link");
  EXPECT_EQ(folder.read("victim"), "mine");
  EXPECT_EQ(names_in(folder), (Names{"dangling", "link", "victim"}));
}

TEST(WholeFile, FileThatIsRead_IsRefusedByAnyName) {
  const plc_test::TempDir folder;
  const std::string input = folder.write("input", "read");
  fs::create_symlink(input, folder.file("link"));
  fs::create_hard_link(input, folder.file("hard"));
  const Names inputs = {"/nonexistent", folder.file("link")};
  EXPECT_EQ(write_whole_file(input, "new", inputs), "it is a file that is read");
  EXPECT_EQ(write_whole_file(folder.file("hard"), "new", inputs), "it is a file that is read");
  EXPECT_EQ(write_whole_file(folder.path() + "/./input", "new", inputs), "it is a file that is read");
  EXPECT_EQ(folder.read("input"), "read");
}

TEST(WholeFile, FileOfOthers_IsKnownByAnyName) {
  const plc_test::TempDir folder;
  const std::string file = folder.write("file", "a");
  fs::create_symlink(file, folder.file("link"));
  EXPECT_TRUE(is_one_of(folder.file("link"), {"/nonexistent", file}));
  EXPECT_FALSE(is_one_of(folder.write("other", "a"), {file}));
  EXPECT_FALSE(is_one_of(folder.file("missing"), {folder.file("missing")}));
}

TEST(WholeFile, OtherHardLink_KeepsWhatItHad) {
  const plc_test::TempDir folder;
  fs::create_hard_link(folder.write("victim", "mine"), folder.file("hard"));
  EXPECT_EQ(write_whole_file(folder.file("hard"), "new", {}), "");
  EXPECT_EQ(folder.read("victim"), "mine");
  EXPECT_EQ(folder.read("hard"), "new");
}

TEST(WholeFile, WhatIsNoRegularFile_IsRefused) {
  const plc_test::TempDir folder;
  ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
  for (const std::string& path : {folder.file("pipe"), std::string("/dev/null")}) {
    EXPECT_EQ(write_whole_file(path, "new", {}), "it is not a regular file") << path;
  }
  EXPECT_EQ(write_whole_file(folder.path(), "new", {}), "it is a folder");
}

TEST(WholeFile, MissingFolder_IsSaid) {
  EXPECT_EQ(write_whole_file("/nonexistent/new", "a", {}), "No such file or directory");
}

TEST(WholeFile, FullDisk_LeavesWhatWasThere) {
  const plc_test::TempDir folder;
  const std::string path = folder.write("old", "what was there before");
  {
    const FullDisk full(1000);
    EXPECT_EQ(write_whole_file(path, std::string(2000, 'a'), {}), "File too large");
    EXPECT_EQ(write_whole_file(folder.file("new"), std::string(2000, 'a'), {}), "File too large");
  }
  EXPECT_EQ(folder.read("old"), "what was there before");
  EXPECT_EQ(names_in(folder), Names{"old"});
}

// The signal that ended a process which writes, when one more came in the middle of its bytes.
int end_of_writer(int number, const std::string& path, bool only_tries) {
  static int interruption = 0;
  interruption = number;
  const pid_t writer = fork();
  if (writer == 0) {
    // The file may not have all of the bytes: that is the middle.
    signal(SIGXFSZ, [](int) { raise(interruption); });
    signal(number, SIG_DFL);
    const struct rlimit few { 4, 4 };
    if (setrlimit(RLIMIT_FSIZE, &few) == 0) {
      if (only_tries) why_not_written(path, {});
      if (!only_tries) write_whole_file(path, "more than four bytes", {});
    }
    _exit(0);
  }
  int status = 0;
  EXPECT_EQ(waitpid(writer, &status, 0), writer);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

TEST(WholeFile, SignalInTheMiddle_EndsTheProgramWithNothingLeftBehind) {
  const plc_test::TempDir folder;
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
    for (const bool only_tries : {false, true}) {
      EXPECT_EQ(end_of_writer(number, folder.file("new"), only_tries), number);
      EXPECT_EQ(names_in(folder), Names{}) << number;
    }
  }
}

TEST(WholeFile, WhatWouldFail_IsSaidBeforeThereIsAnythingToWrite) {
  const plc_test::TempDir folder;
  const std::string old = folder.write("old", "what was there before");
  EXPECT_EQ(why_not_written(old, {}), "");
  EXPECT_EQ(why_not_written(folder.file("new"), {}), "");
  EXPECT_EQ(why_not_written(old, {old}), "it is a file that is read");
  EXPECT_EQ(why_not_written(folder.path(), {}), "it is a folder");
  EXPECT_EQ(why_not_written("/nonexistent/new", {}), "No such file or directory");
  {
    const FullDisk full(10);
    EXPECT_EQ(why_not_written(folder.file("new"), {}), "File too large");
    EXPECT_EQ(why_not_written(old, {}), "File too large");
  }
  EXPECT_EQ(folder.read("old"), "what was there before");
  EXPECT_EQ(names_in(folder), Names{"old"});
}

TEST(WholeFile, ProblemsThatAUserCanSettle_HaveAdvice) {
  EXPECT_EQ(advice_on_output(write_whole_file("/", "new", {})), "name a file in it");
  EXPECT_EQ(advice_on_output(write_whole_file("/nonexistent/new", "a", {})),
            "make its folder first, or name another one");
  EXPECT_EQ(advice_on_output(std::strerror(ENOSPC)), "make room, or name a file on another disk");
  EXPECT_EQ(advice_on_output("anything else"), "");
}

TEST(WholeFile, TemporaryNamesThatAreTaken_AreLeftAlone) {
  const plc_test::TempDir folder;
  const std::string start = ".plc-" + std::to_string(getpid()) + "-";
  folder.write(start + "0.tmp", "somebody else's");
  fs::create_symlink(folder.file("nowhere"), folder.file(start + "1.tmp"));
  EXPECT_EQ(write_whole_file(folder.file("new"), "a", {}), "");
  EXPECT_EQ(names_in(folder), (Names{start + "0.tmp", start + "1.tmp", "new"}));
  EXPECT_EQ(folder.read(start + "0.tmp"), "somebody else's");
}

TEST(GrowingFile, NewAndOldFiles_AreEmptyAndCloseOnExec) {
  const plc_test::TempDir folder;
  folder.write("old", "what was there before");
  for (const char* name : {"new", "old"}) {
    const OpenedFile file = open_growing_file(folder.file(name), {});
    ASSERT_EQ(file.problem, "");
    EXPECT_EQ(fcntl(file.descriptor, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(file.descriptor, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(write(file.descriptor, "a", 1), 1);
    close_opened(file);
    EXPECT_EQ(folder.read(name), "a");
  }
}

TEST(GrowingFile, LinksOfEitherKind_AreRefused) {
  const plc_test::TempDir folder;
  const std::string victim = folder.write("victim", "mine");
  fs::create_symlink(victim, folder.file("link"));
  fs::create_symlink(folder.file("nowhere"), folder.file("dangling"));
  fs::create_hard_link(victim, folder.file("hard"));
  EXPECT_EQ(open_growing_file(folder.file("link"), {}).problem, "it is a symbolic link");
  EXPECT_EQ(open_growing_file(folder.file("dangling"), {}).problem, "it is a symbolic link");
  EXPECT_EQ(open_growing_file(folder.file("hard"), {}).problem, "it has a second name, a hard link");
  EXPECT_EQ(folder.read("victim"), "mine");
  EXPECT_FALSE(fs::exists(folder.file("nowhere")));
}

TEST(GrowingFile, FileThatIsRead_IsRefused) {
  const plc_test::TempDir folder;
  const std::string input = folder.write("input", "read");
  const OpenedFile file = open_growing_file(input, {input});
  EXPECT_EQ(file.problem, "it is a file that is read");
  EXPECT_EQ(file.descriptor, -1);
  EXPECT_EQ(folder.read("input"), "read");
}

TEST(GrowingFile, Pipe_IsOpenedWithoutAWait) {
  const plc_test::TempDir folder;
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(open_growing_file(pipe, {}).problem, "nobody reads this pipe");
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  close_opened(open_growing_file(pipe, {}));
  close(reader);
}

std::string own_name(int descriptor) { return "/dev/fd/" + std::to_string(descriptor); }

TEST(GrowingFile, DevicesAndOwnPipes_AreOpened) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  for (const std::string& path : {std::string("/dev/null"), own_name(ends[1])}) {
    close_opened(open_growing_file(path, {}));
  }
  for (const int end : ends) close(end);
}

TEST(GrowingFile, OwnDescriptorOfAFileOrADevice_IsALinkToIt) {
  const plc_test::TempDir folder;
  const std::string kept = folder.write("kept", "mine");
  for (const std::string& path : {kept, std::string("/dev/full")}) {
    const int own = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(own, 0);
    EXPECT_EQ(open_growing_file(own_name(own), {}).problem, "it is a symbolic link");
    close(own);
  }
  EXPECT_EQ(folder.read("kept"), "mine");
}

TEST(GrowingFile, NameThatOnlyBeginsLikeAnOwnDescriptors_FollowsNoLink) {
  const plc_test::TempDir folder;
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  fs::create_symlink(pipe, folder.file("link"));
  EXPECT_EQ(open_growing_file("/dev/fd/../../.." + folder.file("link"), {}).problem, "it is a symbolic link");
  close(reader);
}

// A standard stream that leads somewhere else while this object lives.
class RedirectedStream {
 public:
  RedirectedStream(int stream, int target) : stream_(stream), before_(fcntl(stream, F_DUPFD_CLOEXEC, 3)) {
    EXPECT_EQ(dup2(target, stream), stream);
  }
  ~RedirectedStream() {
    dup2(before_, stream_);
    close(before_);
  }
  RedirectedStream(const RedirectedStream&) = delete;
  RedirectedStream& operator=(const RedirectedStream&) = delete;

 private:
  int stream_;
  int before_;
};

struct StreamCase {
  int stream;
  const char* name;  // of the system
  const char* problem;
};

const StreamCase kStreamCases[] = {{STDIN_FILENO, "/dev/fd/0", "it is a file that is read"},
                                   {STDOUT_FILENO, "/dev/stdout", "standard output goes there too"},
                                   {STDERR_FILENO, "/dev/stderr", "standard error goes there too"}};

TEST(OwnStream, FileBehindIt_KeepsItsBytes) {
  const plc_test::TempDir folder;
  const std::string path = folder.write("kept", "mine");
  const int file = open(path.c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
  ASSERT_GE(file, 0);
  for (const StreamCase& each : kStreamCases) {
    const RedirectedStream redirected(each.stream, file);
    for (const std::string& name : {path, std::string(each.name), own_name(each.stream), own_name(file)}) {
      EXPECT_EQ(open_growing_file(name, {}).problem, each.problem) << name;
    }
    EXPECT_EQ(write_whole_file(path, "a", {}), each.problem);
    EXPECT_EQ(why_not_written(path, {}), each.problem);
  }
  close(file);
  EXPECT_EQ(folder.read("kept"), "mine");
  EXPECT_EQ(names_in(folder), Names{"kept"});
}

TEST(OwnStream, PipeBehindIt_IsNotOpened) {
  const plc_test::TempDir folder;
  const std::string path = folder.file("pipe");
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const int pipe = open(path.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(pipe, 0);
  for (const StreamCase& each : kStreamCases) {
    const RedirectedStream redirected(each.stream, pipe);
    for (const std::string& name : {path, std::string(each.name), own_name(each.stream), own_name(pipe)}) {
      EXPECT_EQ(open_growing_file(name, {}).problem, each.problem) << name;
    }
  }
  close(pipe);
}

TEST(OwnStream, DeviceBehindIt_IsOpenedByItsOwnNameAlone) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  ASSERT_GE(null, 0);
  const RedirectedStream redirected(STDOUT_FILENO, null);
  EXPECT_EQ(open_growing_file("/dev/stdout", {}).problem, "standard output goes there too");
  close_opened(open_growing_file("/dev/null", {}));
  close(null);
}

TEST(GrowingFile, WhatCannotBeOpened_IsSaid) {
  const plc_test::TempDir folder;
  EXPECT_EQ(open_growing_file(folder.path(), {}).problem, "it is a folder");
  EXPECT_EQ(open_growing_file("/nonexistent/new", {}).problem, "No such file or directory");
}

}  // namespace
}  // namespace plc_base
