// Subscripts of bit writes for shapes that have none, and items of a batch at the first subscript above its bound.
#include <gtest/gtest.h>

#include "plc_driver/tags/element_name.h"

namespace {

TagEntry grid(int32_t high3, int32_t high2, int32_t high1) {
  TagEntry entry = {};
  entry.shape = high3 > 0 ? PLC_ARRAY3 : PLC_ARRAY2;
  entry.dim1_high = high1;
  entry.dim2_high = high2;
  entry.dim3_high = high3;
  return entry;
}

TEST(ElementNameGuard, BitWriteOfAScalar_HasNoSubscripts) {
  const TagEntry entry = {};
  plc::Subscripts subscripts;
  subscripts.count = 3;
  EXPECT_TRUE(plc::form_bit_write_subscripts(entry, PLC_SCALAR, 0, 5, &subscripts));
  EXPECT_EQ(subscripts.count, 0U);
}

TEST(ElementNameGuard, ItemOfTwoDimensions_EndsBehindTheLastRow) {
  plc::Subscripts subscripts;
  EXPECT_TRUE(plc::form_item_subscripts(grid(0, 2, 1), 5, &subscripts));
  EXPECT_EQ(subscripts.value[0], 2);
  EXPECT_EQ(subscripts.value[1], 1);
  EXPECT_FALSE(plc::form_item_subscripts(grid(0, 2, 1), 6, &subscripts));
}

TEST(ElementNameGuard, ItemOfThreeDimensions_EndsBehindTheLastPlane) {
  plc::Subscripts subscripts;
  EXPECT_TRUE(plc::form_item_subscripts(grid(1, 2, 1), 11, &subscripts));
  EXPECT_EQ(subscripts.value[0], 1);
  EXPECT_EQ(subscripts.value[1], 2);
  EXPECT_EQ(subscripts.value[2], 1);
  EXPECT_FALSE(plc::form_item_subscripts(grid(1, 2, 1), 12, &subscripts));
}

// The quotient's remainder is above its bound when the range's lower end is: no element of such an array can be read.
TEST(ElementNameGuard, ItemOfARangeThatRunsBackwards_IsOutOfRange) {
  TagEntry entry = grid(1, 1, 1);
  entry.dim1_low = 4;
  plc::Subscripts subscripts;
  EXPECT_FALSE(plc::form_item_subscripts(entry, 0, &subscripts));
  entry = grid(1, 1, 1);
  entry.dim2_low = 4;
  EXPECT_FALSE(plc::form_item_subscripts(entry, 0, &subscripts));
  entry = grid(0, 1, 1);
  entry.dim1_low = 4;
  EXPECT_FALSE(plc::form_item_subscripts(entry, 0, &subscripts));
}

}  // namespace
