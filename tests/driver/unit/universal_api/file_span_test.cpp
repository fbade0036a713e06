// Tests of the positioned file read and write.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/captured_output.h"
#include "tests/support/descriptors.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/loopback.h"
#include "tests/support/temp_dir.h"
#include "universal_api.h"

namespace {

using plc_test::count_open_descriptors;
using plc_test::GuardedBuffer;
using plc_test::TempDir;

constexpr uint8_t kUntouchedByte = 0xEE;

const uint8_t* as_bytes(const char* text) { return reinterpret_cast<const uint8_t*>(text); }

mode_t file_mode(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777u;
}

// Clears the mask that the process takes off the mode of new files.
class OpenUmask {
 public:
  OpenUmask() : saved_(umask(0)) {}
  OpenUmask(const OpenUmask&) = delete;
  OpenUmask& operator=(const OpenUmask&) = delete;
  ~OpenUmask() { umask(saved_); }

 private:
  mode_t saved_;
};

class FileSpan : public testing::Test {
 protected:
  TempDir dir_;
  std::string path_ = dir_.file("span.bin");
};

using ReadFile = FileSpan;
using WriteFile = FileSpan;

TEST_F(ReadFile, WholeFile_FillsTheBuffer) {
  dir_.write("span.bin", "0123456789");
  GuardedBuffer out(10);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), 0, 10), 10);
  EXPECT_EQ(std::string(out.text(), 10), "0123456789");
  EXPECT_TRUE(out.guards_intact());
}

TEST_F(ReadFile, Offset_CountsFromTheStart) {
  dir_.write("span.bin", "0123456789");
  GuardedBuffer out(3);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), 4, 3), 3);
  EXPECT_EQ(std::string(out.text(), 3), "456");
  EXPECT_TRUE(out.guards_intact());
}

TEST_F(ReadFile, SpanPastTheEnd_ReturnsWhatThereIs) {
  dir_.write("span.bin", "0123456789");
  GuardedBuffer out(10, kUntouchedByte);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), 8, 10), 2);
  EXPECT_EQ(std::string(out.text(), 2), "89");
  EXPECT_EQ(out[2], kUntouchedByte);
}

TEST_F(ReadFile, OffsetPastTheEnd_ReturnsZero) {
  dir_.write("span.bin", "0123456789");
  GuardedBuffer out(4, kUntouchedByte);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), 11, 4), 0);
  EXPECT_TRUE(out.holds_only(kUntouchedByte));
}

TEST_F(ReadFile, LengthZero_ReturnsZero) {
  dir_.write("span.bin", "0123456789");
  GuardedBuffer out(1, kUntouchedByte);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), 0, 0), 0);
  EXPECT_TRUE(out.holds_only(kUntouchedByte));
}

TEST_F(ReadFile, MissingFile_IsCreatedEmptyWithMode0644) {
  const OpenUmask open_umask;
  uint8_t out[4];
  EXPECT_EQ(Read_File(path_.c_str(), out, 0, sizeof out), 0);
  ASSERT_TRUE(std::filesystem::exists(path_));
  EXPECT_EQ(dir_.read("span.bin"), "");
  EXPECT_EQ(file_mode(path_), 0644u);
}

TEST_F(ReadFile, NegativeOffset_Fails) {
  dir_.write("span.bin", "0123456789");
  GuardedBuffer out(4, kUntouchedByte);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), -1, 4), -1);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), INT32_MIN, 4), -1);
  EXPECT_TRUE(out.holds_only(kUntouchedByte));
}

TEST_F(ReadFile, FileBeyond2GiB_IsReadUpToTheLargestOffset) {
  dir_.write("span.bin", "");
  std::filesystem::resize_file(path_, (uintmax_t{1} << 31) + 2);
  GuardedBuffer out(8, kUntouchedByte);
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), INT32_MAX, 8), 3);
  EXPECT_EQ(out[2], 0);
  EXPECT_EQ(out[3], kUntouchedByte);
}

TEST_F(ReadFile, Folder_Fails) {
  uint8_t out[4];
  EXPECT_EQ(Read_File(dir_.path().c_str(), out, 0, sizeof out), -1);
}

TEST_F(ReadFile, PathWithoutFolder_Fails) {
  uint8_t out[4];
  EXPECT_EQ(Read_File(dir_.file("missing/span.bin").c_str(), out, 0, sizeof out), -1);
}

TEST_F(ReadFile, Descriptor0_FailsAndIsClosedAgain_D45) {
  dir_.write("span.bin", "0123456789");
  const plc_test::ClosedDescriptor no_input(STDIN_FILENO);
  GuardedBuffer out(4, kUntouchedByte);
  const int before = count_open_descriptors();
  EXPECT_EQ(Read_File(path_.c_str(), out.data(), 0, 4), -1);
  EXPECT_FALSE(plc_test::is_open_descriptor(STDIN_FILENO));
  EXPECT_EQ(count_open_descriptors(), before);
  EXPECT_TRUE(out.holds_only(kUntouchedByte));
}

TEST_F(ReadFile, NoDescriptorLeft_Fails) {
  dir_.write("span.bin", "0123456789");
  uint8_t out[4];
  const plc_test::ExhaustedDescriptors exhausted;
  EXPECT_EQ(Read_File(path_.c_str(), out, 0, sizeof out), -1);
}

TEST_F(ReadFile, OneDescriptorLeft_IsEnoughForEveryCall) {
  dir_.write("span.bin", "0123456789");
  uint8_t out[4];
  plc_test::ExhaustedDescriptors exhausted;
  exhausted.release_one();
  EXPECT_EQ(Read_File(path_.c_str(), out, 0, sizeof out), 4);
  EXPECT_EQ(Read_File(path_.c_str(), out, -1, sizeof out), -1);
  EXPECT_EQ(Write_File(path_.c_str(), out, -1, sizeof out), -1);
  EXPECT_EQ(Write_File("/dev/full", out, 0, sizeof out), -1);
  EXPECT_EQ(Read_File(path_.c_str(), out, 0, sizeof out), 4);
}

TEST_F(WriteFile, MissingFile_IsCreatedWithMode0644) {
  const OpenUmask open_umask;
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes("abc"), 0, 3), 3);
  EXPECT_EQ(dir_.read("span.bin"), "abc");
  EXPECT_EQ(file_mode(path_), 0644u);
}

TEST_F(WriteFile, BytesAroundTheSpan_Stay) {
  dir_.write("span.bin", "0123456789");
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes("abc"), 4, 3), 3);
  EXPECT_EQ(dir_.read("span.bin"), "0123abc789");
}

TEST_F(WriteFile, OffsetPastTheEnd_LeavesZerosBetween) {
  dir_.write("span.bin", "01");
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes("a"), 4, 1), 1);
  EXPECT_EQ(dir_.read("span.bin"), std::string("01\0\0a", 5));
}

TEST_F(WriteFile, SpanAcross2GiB_IsWrittenWhole) {
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes("abcd"), INT32_MAX, 4), 4);
  EXPECT_EQ(std::filesystem::file_size(path_), (uintmax_t{1} << 31) + 3);
  uint8_t out[4];
  EXPECT_EQ(Read_File(path_.c_str(), out, INT32_MAX, 4), 4);
  EXPECT_EQ(std::string(out, out + 4), "abcd");
}

TEST_F(WriteFile, LengthZero_ChangesNothing) {
  dir_.write("span.bin", "01");
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes(""), 1, 0), 0);
  EXPECT_EQ(dir_.read("span.bin"), "01");
}

TEST_F(WriteFile, NegativeOffset_FailsAndLeavesTheFileAlone) {
  dir_.write("span.bin", "0123456789");
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes("abc"), -1, 3), -1);
  EXPECT_EQ(dir_.read("span.bin"), "0123456789");
}

TEST_F(WriteFile, FullDisk_Fails) { EXPECT_EQ(Write_File("/dev/full", as_bytes("abc"), 0, 3), -1); }

TEST_F(WriteFile, Folder_Fails) { EXPECT_EQ(Write_File(dir_.path().c_str(), as_bytes("abc"), 0, 3), -1); }

TEST_F(WriteFile, Descriptor0_FailsAndIsClosedAgain) {
  dir_.write("span.bin", "0123456789");
  {
    const plc_test::ClosedDescriptor no_input(STDIN_FILENO);
    EXPECT_EQ(Write_File(path_.c_str(), as_bytes("abc"), 0, 3), -1);
    EXPECT_FALSE(plc_test::is_open_descriptor(STDIN_FILENO));
  }
  EXPECT_EQ(dir_.read("span.bin"), "0123456789");
}

TEST_F(WriteFile, Pipe_TakesBytesThoughItHasNoPositions) {
  ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
  const plc_test::ScopedDescriptor both_ends(open(path_.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_GE(both_ends.get(), 0);
  EXPECT_EQ(Write_File(path_.c_str(), as_bytes("abc"), 0, 3), 3);
  uint8_t out[8];
  EXPECT_EQ(Read_File(path_.c_str(), out, 0, sizeof out), 3);
  EXPECT_EQ(std::string(out, out + 3), "abc");
}

TEST_F(FileSpan, EveryOutcome_PrintsNothingAndLeavesNoDescriptorOpen) {
  const std::string folder = dir_.path();
  const int before = count_open_descriptors();
  const std::string printed = plc_test::capture_output([&] {
    uint8_t bytes[4] = {};
    for (const std::string& path : {path_, folder, folder + "/missing/x", std::string("/dev/full"), std::string()}) {
      for (const int32_t offset : {0, 3, -1}) {
        Read_File(path.c_str(), bytes, offset, sizeof bytes);
        Write_File(path.c_str(), bytes, offset, sizeof bytes);
      }
    }
  });
  EXPECT_EQ(printed, "");
  EXPECT_EQ(count_open_descriptors(), before);
}

}  // namespace
