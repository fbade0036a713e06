// Tests of reading whole files: every byte, or what is wrong.
#include "base/files.h"

#include <gtest/gtest.h>

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
  EXPECT_EQ(file.problem, "cannot read /nonexistent/tags.csv");
  EXPECT_EQ(file.text, "");
}

TEST(ReadFile, Folder_CannotBeRead) {
  const plc_test::TempDir folder;
  EXPECT_EQ(read_file(folder.path(), 100).problem, "cannot read " + folder.path());
}

TEST(ReadFile, OneByteMoreThanWanted_SaysSoAndGivesNothing) {
  const plc_test::TempDir folder;
  const std::string path = folder.write("five", "12345");
  EXPECT_EQ(read_file(path, 5).text, "12345");
  const FileText file = read_file(path, 4);
  EXPECT_EQ(file.problem, "cannot read " + path + ": it has more than 4 bytes");
  EXPECT_EQ(file.text, "");
}

TEST(ReadFile, EndlessDevice_EndsAtTheBound) {
  EXPECT_EQ(read_file("/dev/zero", 1000000).problem, "cannot read /dev/zero: it has more than 1000000 bytes");
}

}  // namespace
}  // namespace plc_base
