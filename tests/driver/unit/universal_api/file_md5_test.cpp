// Tests of the file digest: against md5sum, the edges of its blocks, and everything that is not a readable file.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/support/captured_output.h"
#include "tests/support/descriptors.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/temp_dir.h"
#include "universal_api.h"

namespace {

using plc_test::capture_output;
using plc_test::CapturedOutput;
using plc_test::count_open_descriptors;
using plc_test::GuardedBuffer;
using plc_test::TempDir;

constexpr const char* kEmptyDigest = "d41d8cd98f00b204e9800998ecf8427e";
constexpr const char* kAbcDigest = "900150983cd24fb0d6963f7d28e17f72";
constexpr const char* kCannotOpen = "Can not open this file!\n";
constexpr const char* kTooLarge = "Sorry! Can not calculate files which larger than 2 GB!\n";
constexpr size_t kDigestTextBytes = 33;
constexpr uid_t kOtherUser = 65534;

struct Digest {
  int32_t result;
  std::string text;
  std::string path_after;
  std::string printed;
};

// Digests path from a buffer that holds it exactly, into one that holds a digest exactly.
Digest digest_path(const std::string& path) {
  GuardedBuffer path_buffer(path.size() + 1);
  std::memcpy(path_buffer.data(), path.c_str(), path.size() + 1);
  GuardedBuffer out(kDigestTextBytes);
  CapturedOutput captured;
  Digest digest;
  digest.result = CalcFileMD5(path_buffer.text(), out.text());
  digest.printed = captured.take();
  EXPECT_TRUE(out.guards_intact());
  EXPECT_TRUE(path_buffer.guards_intact());
  digest.text = out.text();
  digest.path_after = path_buffer.text();
  return digest;
}

void expect_digest(const std::string& path, const std::string& expected) {
  const Digest digest = digest_path(path);
  EXPECT_EQ(digest.result, 1) << path;
  EXPECT_EQ(digest.text, expected) << path;
  EXPECT_EQ(digest.printed, "");
}

void expect_failure(const std::string& path, const std::string& line) {
  const Digest digest = digest_path(path);
  EXPECT_EQ(digest.result, 0) << path;
  EXPECT_EQ(digest.printed, line) << path;
  EXPECT_EQ(digest.text, "") << path;
}

std::string make_bytes(size_t count) {
  std::string bytes(count, '\0');
  uint32_t state = 0x9E3779B9;
  for (char& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

// The digests that md5sum gives the files of a folder, by file name.
std::map<std::string, std::string> ask_md5sum(const TempDir& dir) {
  const plc_test::ScopedWorkingDirectory inside(dir.path());
  std::map<std::string, std::string> digests;
  FILE* const answer = popen("md5sum --binary *", "r");
  if (answer == nullptr) return digests;
  char digest[kDigestTextBytes];
  char name[256];
  while (std::fscanf(answer, "%32s *%255s", digest, name) == 2) digests[name] = digest;
  pclose(answer);
  return digests;
}

class CalcFileMd5 : public testing::Test {
 protected:
  TempDir dir_;
};

TEST_F(CalcFileMd5, EmptyFile_GivesThePublishedDigest) { expect_digest(dir_.write("empty", ""), kEmptyDigest); }

TEST_F(CalcFileMd5, PublishedTexts_GiveThePublishedDigests) {
  expect_digest(dir_.write("a", "a"), "0cc175b9c0f1b6a831c399e269772661");
  expect_digest(dir_.write("abc", "abc"), kAbcDigest);
  expect_digest(dir_.write("message", "message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  expect_digest(dir_.write("letters", "abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
  std::string digits;
  for (int row = 0; row < 8; ++row) digits += "1234567890";
  expect_digest(dir_.write("digits", digits), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST_F(CalcFileMd5, FileOf64Bytes_PadsInASecondBlock) {
  expect_digest(dir_.write("block", std::string(64, 'a')), "014842d480b571495a4a0363793f7367");
}

TEST_F(CalcFileMd5, FilesUpTo200BytesAndLongerOnes_EqualMd5sum) {
  std::vector<size_t> lengths;
  for (size_t length = 0; length <= 200; ++length) lengths.push_back(length);
  lengths.insert(lengths.end(), {4096, 100000, 16u << 20});
  for (const size_t length : lengths) dir_.write(std::to_string(length), make_bytes(length));
  const std::map<std::string, std::string> expected = ask_md5sum(dir_);
  ASSERT_EQ(expected.size(), lengths.size());
  for (const size_t length : lengths) {
    expect_digest(dir_.file(std::to_string(length)), expected.at(std::to_string(length)));
  }
}

TEST_F(CalcFileMd5, FileAbove512MiB_CountsTheHighWordOfItsBits) {
  const std::string path = dir_.write("long", "");
  ASSERT_EQ(truncate(path.c_str(), (512 << 20) + 1), 0);
  expect_digest(path, "ea3b62c6b93cb3625a1fd76777985f5a");
}

TEST_F(CalcFileMd5, FileOf2GiB_IsTooLarge) {
  const std::string path = dir_.write("huge", "");
  std::filesystem::resize_file(path, uintmax_t{1} << 31);
  expect_failure(path, kTooLarge);
}

TEST_F(CalcFileMd5, FileWhoseLengthIs0Modulo4GiB_IsTooLarge) {
  const std::string path = dir_.write("huge", "");
  std::filesystem::resize_file(path, uintmax_t{1} << 32);
  expect_failure(path, kTooLarge);
}

TEST_F(CalcFileMd5, PathInQuotes_IsOpenedWithoutThem) {
  const plc_test::ScopedWorkingDirectory inside(dir_.path());
  dir_.write("data.bin", "abc");
  const Digest digest = digest_path("\"data.bin\"");
  EXPECT_EQ(digest.result, 1);
  EXPECT_EQ(digest.text, kAbcDigest);
  EXPECT_EQ(digest.path_after, "data.bin");
}

TEST_F(CalcFileMd5, PathThatOnlyBeginsWithAQuote_LosesItsLastCharacterToo) {
  const plc_test::ScopedWorkingDirectory inside(dir_.path());
  dir_.write("data.bin", "abc");
  const Digest digest = digest_path("\"data.binX");
  EXPECT_EQ(digest.result, 1);
  EXPECT_EQ(digest.path_after, "data.bin");
}

TEST_F(CalcFileMd5, PathThatOnlyEndsWithAQuote_IsTakenAsItStands) {
  const plc_test::ScopedWorkingDirectory inside(dir_.path());
  dir_.write("data.bin\"", "abc");
  EXPECT_EQ(digest_path("data.bin\"").path_after, "data.bin\"");
  expect_digest("data.bin\"", kAbcDigest);
}

TEST_F(CalcFileMd5, PathWithQuotesInQuotes_LosesTheOuterPairAlone) {
  const plc_test::ScopedWorkingDirectory inside(dir_.path());
  dir_.write("\"odd\"", "abc");
  const Digest digest = digest_path("\"\"odd\"\"");
  EXPECT_EQ(digest.result, 1);
  EXPECT_EQ(digest.path_after, "\"odd\"");
}

TEST_F(CalcFileMd5, EmptyPath_CannotBeOpened) { expect_failure("", kCannotOpen); }

TEST_F(CalcFileMd5, PathOfOneQuote_CannotBeOpened) {
  const Digest digest = digest_path("\"");
  EXPECT_EQ(digest.result, 0);
  EXPECT_EQ(digest.printed, kCannotOpen);
  EXPECT_EQ(digest.path_after, "");
}

TEST_F(CalcFileMd5, PathOfTwoQuotes_CannotBeOpened) {
  const Digest digest = digest_path("\"\"");
  EXPECT_EQ(digest.result, 0);
  EXPECT_EQ(digest.printed, kCannotOpen);
  EXPECT_EQ(digest.path_after, "");
}

TEST_F(CalcFileMd5, PathExit_EndsTheProcessWithStatus0_D44) {
  EXPECT_EXIT(
      {
        char path[] = "exit";
        char out[kDigestTextBytes];
        CalcFileMD5(path, out);
        std::_Exit(1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(CalcFileMd5, PathExitInQuotes_EndsTheProcessWithStatus0) {
  EXPECT_EXIT(
      {
        char path[] = "\"exit\"";
        char out[kDigestTextBytes];
        CalcFileMD5(path, out);
        std::_Exit(1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(CalcFileMd5, PathThatOnlyBeginsWithExit_IsAPath) {
  const plc_test::ScopedWorkingDirectory inside(dir_.path());
  dir_.write("exit.bin", "abc");
  expect_digest("exit.bin", kAbcDigest);
  expect_digest(dir_.write("exit", "abc"), kAbcDigest);
}

TEST_F(CalcFileMd5, MissingFile_CannotBeOpened) { expect_failure(dir_.file("missing"), kCannotOpen); }

// Where a folder ends is the file system's choice: nowhere, far away, or on 32 bits at the largest length that a file
// may have. It is told at once, though no byte of it can be read.
TEST_F(CalcFileMd5, Folder_GivesNoDigest) {
  const Digest digest = digest_path(dir_.path());
  EXPECT_EQ(digest.result, 0);
  EXPECT_TRUE(digest.printed == kTooLarge || digest.printed == kCannotOpen) << digest.printed;
  EXPECT_EQ(digest.text, "");
}

TEST_F(CalcFileMd5, FileThatFailsToRead_GivesNoDigest) {
  // The system lets this file be opened and measured, and refuses to read its first bytes.
  expect_failure("/proc/self/mem", kCannotOpen);
}

TEST_F(CalcFileMd5, UnreadableFile_CannotBeOpened) {
  const std::string path = dir_.write("secret", "abc");
  ASSERT_EQ(chmod(path.c_str(), 0), 0);
  ASSERT_EQ(chmod(dir_.path().c_str(), 0755), 0);
  CapturedOutput captured;
  const pid_t child = fork();
  if (child == 0) {
    // Root reads every file: the child becomes a user who does not.
    const bool is_plain_user = geteuid() != 0 || setuid(kOtherUser) == 0;
    std::string own_path = path;
    char out[kDigestTextBytes] = "";
    const int32_t result = CalcFileMD5(own_path.data(), out);
    std::fflush(stdout);
    std::_Exit(is_plain_user && result == 0 && out[0] == '\0' ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(captured.take(), kCannotOpen);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(CalcFileMd5, NoDescriptorLeft_CannotBeOpened) {
  const std::string path = dir_.write("data", "abc");
  std::string own_path = path;
  char out[kDigestTextBytes] = "";
  int32_t result = -1;
  CapturedOutput captured;
  {
    const plc_test::ExhaustedDescriptors exhausted;
    result = CalcFileMD5(own_path.data(), out);
  }
  EXPECT_EQ(captured.take(), kCannotOpen);
  EXPECT_EQ(result, 0);
  expect_digest(path, kAbcDigest);
}

TEST_F(CalcFileMd5, EveryOutcome_LeavesNoDescriptorOpen) {
  const std::string huge = dir_.write("huge", "");
  std::filesystem::resize_file(huge, uintmax_t{1} << 31);
  const std::string data = dir_.write("data", "abc");
  const int before = count_open_descriptors();
  for (const std::string& path :
       {data, huge, dir_.path(), dir_.file("missing"), std::string("\""), std::string("/proc/self/mem")}) {
    digest_path(path);
  }
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(CalcFileMd5, TwoFilesInTurn_DoNotMix) {
  const std::string abc = dir_.write("abc", "abc");
  const std::string empty = dir_.write("empty", "");
  expect_digest(abc, kAbcDigest);
  expect_digest(empty, kEmptyDigest);
  expect_digest(abc, kAbcDigest);
}

TEST(Md5, StepBetweenTwoDigests_ChangesNeither) {
  const TempDir dir;
  const std::string path = dir.write("abc", "abc");
  expect_digest(path, kAbcDigest);
  md5();
  expect_digest(path, kAbcDigest);
}

}  // namespace
