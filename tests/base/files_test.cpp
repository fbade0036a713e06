// Tests of reading whole files: every byte, or what is wrong.
#include "base/files.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "tests/support/temp_dir.h"

namespace plc_base {
namespace {

TEST(ReadFile, LongerThanOnePiece_GivesEveryByte) {
  const plc_test::TempDir folder;
  std::string bytes(200001, 'a');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i % 251);
  const FileText file = read_file(folder.write("long", bytes), bytes.size());
  EXPECT_EQ(file.problem, "");
  EXPECT_TRUE(file.text == bytes) << file.text.size() << " bytes";
}

TEST(ReadFile, EmptyFile_IsNoProblem) {
  const plc_test::TempDir folder;
  const FileText file = read_file(folder.write("empty", ""), 0);
  EXPECT_EQ(file.problem, "");
  EXPECT_EQ(file.text, "");
}

TEST(ReadFile, MissingFile_CannotBeRead) {
  const FileText file = read_file("/nonexistent/tags.csv", 100);
  EXPECT_EQ(file.problem, "cannot read /nonexistent/tags.csv: No such file or directory");
  EXPECT_EQ(file.text, "");
}

TEST(ReadFile, OneByteMoreThanWanted_SaysSoAndGivesNothing) {
  const plc_test::TempDir folder;
  const std::string path = folder.write("five", "12345");
  EXPECT_EQ(read_file(path, 5).text, "12345");
  const FileText file = read_file(path, 4);
  EXPECT_EQ(file.problem, "cannot read " + path + ": it has more than 4 bytes");
  EXPECT_EQ(file.text, "");
}

// A pipe that nobody writes would be waited for, a device need not end.
TEST(ReadFile, OneByteMoreThanWantedInALaterPiece_SaysSoAndGivesNothing) {
  const plc_test::TempDir folder;
  const FileText file = read_file(folder.write("long", std::string(150001, 'a')), 150000);
  EXPECT_THAT(file.problem, testing::EndsWith("it has more than 150000 bytes"));
  EXPECT_EQ(file.text, "");
}

TEST(ReadFile, WhatIsNoRegularFile_IsRefusedAtOnce) {
  const plc_test::TempDir folder;
  const std::string pipe = folder.file("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string socket_path = folder.file("socket");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  ASSERT_LT(socket_path.size(), sizeof address.sun_path);
  std::strcpy(address.sun_path, socket_path.c_str());
  const int local = socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_EQ(bind(local, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  close(local);
  for (const std::string& path : {pipe, socket_path, std::string("/dev/zero"), std::string("/dev/null")}) {
    EXPECT_EQ(read_file(path, 1000000).problem, "cannot read " + path + ": it is not a regular file");
  }
  EXPECT_EQ(read_file(folder.path(), 1000000).problem, "cannot read " + folder.path() + ": it is a folder");
}

// The system would open "tags".
TEST(ReadFile, ZeroByteInTheName_IsNoFile) {
  const plc_test::TempDir folder;
  const std::string path = folder.write("tags", "A,INT\n") + std::string("\0.csv", 5);
  const FileText file = read_file(path, 100);
  EXPECT_THAT(file.problem, testing::EndsWith(": no file has a zero byte in its name"));
  EXPECT_EQ(file.text, "");
}

TEST(ReadFile, FileOfTheSystem_IsReadThoughItTellsNoSize) {
  const FileText file = read_file("/proc/self/stat", 100000);
  EXPECT_EQ(file.problem, "");
  EXPECT_EQ(file.text.substr(0, 1 + std::to_string(getpid()).size()), std::to_string(getpid()) + " ");
}

TEST(ReadFile, ReadThatFails_CannotBeRead) {
  EXPECT_EQ(read_file("/proc/self/mem", 100).problem, "cannot read /proc/self/mem: Input/output error");
}

TEST(OpenRegularFile, LinkToAFile_ClosesOnExec) {
  const plc_test::TempDir folder;
  std::filesystem::create_symlink(folder.write("file", "a"), folder.file("link"));
  const OpenedFile file = open_regular_file(folder.file("link"));
  ASSERT_EQ(file.problem, "");
  EXPECT_EQ(fcntl(file.descriptor, F_GETFD), FD_CLOEXEC);
  close(file.descriptor);
}

}  // namespace
}  // namespace plc_base
