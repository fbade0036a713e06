// The columns of a tag file's line at their edges: more ranges than there are dimensions, fields as long as can be.
#include <gtest/gtest.h>

#include <string>

#include "plc_driver/tags/tag_line.h"

namespace {

TagEntry guarded_entry(const std::string& line) {
  TagEntry entry = {};
  pase_str(line.c_str(), &entry);
  return entry;
}

TEST(TagLineGuard, FourRanges_SetTheFirstAsOneDimension) {
  const TagEntry entry = guarded_entry("V,INT,[1..2_3..4_5..6_7..8],,,,,0,1,0,0,\n");
  EXPECT_EQ(entry.shape, PLC_ARRAY1);
  EXPECT_EQ(entry.dim1_low, 1);
  EXPECT_EQ(entry.dim1_high, 2);
  EXPECT_EQ(entry.dim2_low, 0);
  EXPECT_EQ(entry.dim2_high, 0);
  EXPECT_EQ(entry.dim3_low, 0);
  EXPECT_EQ(entry.dim3_high, 0);
}

TEST(TagLineGuard, RangesThatEndInTheMiddle_SetTheBoundsBeforeIt) {
  const TagEntry entry = guarded_entry("V,INT,[1..2_3..,,,,,0,1,0,0,\n");
  EXPECT_EQ(entry.shape, PLC_ARRAY2);
  EXPECT_EQ(entry.dim2_low, 1);
  EXPECT_EQ(entry.dim2_high, 2);
  EXPECT_EQ(entry.dim1_low, 3);
  EXPECT_EQ(entry.dim1_high, 0);
}

TEST(TagLineGuard, NameOf255Bytes_KeepsItsTerminator) {
  const TagEntry entry = guarded_entry(std::string(255, 'n') + ",INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(std::string(entry.name), std::string(255, 'n'));
}

TEST(TagLineGuard, NameOf256Bytes_LosesItsLast) {
  const TagEntry entry = guarded_entry(std::string(256, 'n') + ",INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(std::string(entry.name), std::string(255, 'n'));
  EXPECT_EQ(entry.bit_width, 16);
}

// The first byte takes three bytes in, whatever they are; the sequences of two bytes behind them end at 254.
TEST(TagLineGuard, CutNameThatBeginsMalformed_LosesTheSequenceThatWasCut) {
  std::string name =
      "\xF0"
      "ab\xC3";
  while (name.size() < 256) name += "\xC3";
  const TagEntry entry = guarded_entry(name + ",INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(std::string(entry.name), name.substr(0, 254));
}

TEST(TagLineGuard, ScopeNameOf256Bytes_LosesItsLast) {
  const TagEntry entry = guarded_entry("V,INT,,,,,,0,0,0,1," + std::string(256, 's') + "\n");
  EXPECT_EQ(std::string(entry.scope_name), std::string(255, 's'));
}

}  // namespace
