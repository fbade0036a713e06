// Tag files that are too much to be looked at.
#include "client/tags/tag_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/client_error.h"
#include "tests/support/temp_dir.h"

namespace {

using plc_client::core::ClientError;
using plc_client::core::tag_file_text;

TEST(TagFileText, MoreLinesThanMemoryIsFor_AreRefused) {
  const plc_test::TempDir folder;
  const std::string most(plc_client::core::kMostTagLines, '\n');
  EXPECT_EQ(tag_file_text(folder.write("most.csv", most)), most);
  const std::string path = folder.write("more.csv", most + "\n");
  try {
    tag_file_text(path);
    FAIL() << "the file is taken";
  } catch (const ClientError& error) {
    EXPECT_EQ(error.kind(), ClientError::Kind::kTagFile);
    EXPECT_EQ(std::string(error.what()), "cannot read " + path +
                                             ": it has more than 1000000 lines. Try: a line for each variable, and no "
                                             "others");
  }
}

}  // namespace
