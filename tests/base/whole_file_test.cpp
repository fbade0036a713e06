// Tests of files that a user asked for: whole or as before, through no link, over nothing that was read.
#include "base/whole_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

TEST(GrowingFile, DevicesAndOwnDescriptors_AreOpened) {
  const plc_test::TempDir folder;
  const int own = open(folder.file("own").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(own, 0);
  for (const std::string& path : {std::string("/dev/null"), "/dev/fd/" + std::to_string(own)}) {
    close_opened(open_growing_file(path, {}));
  }
  close(own);
}

TEST(GrowingFile, WhatCannotBeOpened_IsSaid) {
  const plc_test::TempDir folder;
  EXPECT_EQ(open_growing_file(folder.path(), {}).problem, "it is a folder");
  EXPECT_EQ(open_growing_file("/nonexistent/new", {}).problem, "No such file or directory");
}

}  // namespace
}  // namespace plc_base
