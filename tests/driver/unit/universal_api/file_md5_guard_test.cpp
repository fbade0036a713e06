// A file that has no end to seek to.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>

#include "tests/support/captured_output.h"
#include "universal_api.h"

namespace {

TEST(FileMd5Guard, Pipe_IsRefusedAsTooLarge) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::string path = "/proc/self/fd/" + std::to_string(ends[0]);
  std::string out = "untouched";
  int32_t result = 1;
  const std::string printed = plc_test::capture_output([&] { result = CalcFileMD5(path.data(), out.data()); });
  close(ends[0]);
  close(ends[1]);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(out, "untouched");
  EXPECT_EQ(printed, "Sorry! Can not calculate files which larger than 2 GB!\n");
}

}  // namespace
