// Tests of the log file.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/captured_output.h"
#include "tests/support/descriptors.h"
#include "tests/support/temp_dir.h"
#include "universal_api.h"

namespace {

using plc_test::count_open_descriptors;
using plc_test::TempDir;

class EvLog : public testing::Test {
 protected:
  TempDir dir_;
  std::string path_ = dir_.file("driver.log");
};

TEST_F(EvLog, Texts_AreAppendedInOrder) {
  ev_log(path_.c_str(), "%s=%d\n", "speed", 120);
  ev_log(path_.c_str(), "second\n");
  EXPECT_EQ(dir_.read("driver.log"), "speed=120\nsecond\n");
}

TEST_F(EvLog, ExistingFile_KeepsItsText) {
  dir_.write("driver.log", "before\n");
  ev_log(path_.c_str(), "%c", 'x');
  EXPECT_EQ(dir_.read("driver.log"), "before\nx");
}

TEST_F(EvLog, TextOf255Bytes_IsWrittenWhole) {
  const std::string text(255, 'a');
  ev_log(path_.c_str(), "%s", text.c_str());
  EXPECT_EQ(dir_.read("driver.log"), text);
}

TEST_F(EvLog, TextOf256Bytes_IsCutTo255) {
  const std::string text = std::string(255, 'a') + "b";
  ev_log(path_.c_str(), "%s", text.c_str());
  EXPECT_EQ(dir_.read("driver.log"), text.substr(0, 255));
}

TEST_F(EvLog, VeryLongText_IsCutTo255) {
  ev_log(path_.c_str(), "%0100000d", 7);
  EXPECT_EQ(dir_.read("driver.log"), std::string(255, '0'));
}

TEST_F(EvLog, EmptyText_CreatesTheFile) {
  ev_log(path_.c_str(), "%s", "");
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_EQ(dir_.read("driver.log"), "");
}

TEST_F(EvLog, EveryCall_LeavesNoDescriptorOpen) {
  const int before = count_open_descriptors();
  ev_log(path_.c_str(), "text");
  ev_log("/dev/full", "text");
  ev_log(dir_.path().c_str(), "a folder is no log");
  ev_log(dir_.file("missing/driver.log").c_str(), "text");
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(EvLog, FileThatCannotBeOpened_ChangesAndPrintsNothing) {
  const std::string printed = plc_test::capture_output([this] {
    ev_log(dir_.file("missing/driver.log").c_str(), "text");
    ev_log(dir_.path().c_str(), "text");
    ev_log("/dev/full", "text");
  });
  EXPECT_EQ(printed, "");
  EXPECT_TRUE(std::filesystem::is_empty(dir_.path()));
}

TEST_F(EvLog, NoDescriptorLeft_ChangesNothing) {
  dir_.write("driver.log", "before");
  {
    const plc_test::ExhaustedDescriptors exhausted;
    ev_log(path_.c_str(), "lost");
  }
  EXPECT_EQ(dir_.read("driver.log"), "before");
}

TEST_F(EvLog, OneDescriptorLeft_IsEnough) {
  {
    plc_test::ExhaustedDescriptors exhausted;
    exhausted.release_one();
    ev_log(path_.c_str(), "a");
    ev_log(path_.c_str(), "b");
  }
  EXPECT_EQ(dir_.read("driver.log"), "ab");
}

}  // namespace
