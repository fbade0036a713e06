// Tests of the subscripts of reads and of their text.
#include "plc_driver/tags/element_name.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using plc::form_read_subscripts;
using plc::Subscripts;

TagEntry entry_of(uint32_t shape, int32_t low1, int32_t high1, int32_t low2 = 0, int32_t high2 = 0, int32_t low3 = 0) {
  TagEntry entry{};
  entry.shape = shape;
  entry.dim1_low = low1;
  entry.dim1_high = high1;
  entry.dim2_low = low2;
  entry.dim2_high = high2;
  entry.dim3_low = low3;
  return entry;
}

std::string text_of(const Subscripts& subscripts, bool marked = true) {
  const plc::SubscriptText text(subscripts, marked);
  return std::string(reinterpret_cast<const char*>(text.data()), text.length());
}

// The subscripts of a read of this element; "none" when an extent is zero.
std::string read_text(const TagEntry& entry, uint32_t element) {
  Subscripts subscripts;
  return form_read_subscripts(entry, element, &subscripts) ? text_of(subscripts) : "none";
}

TEST(ReadSubscripts, OtherShapes_HaveNone) {
  for (const uint32_t shape : {0U, 2U, 6U, 0xFFFFFFFFU}) EXPECT_EQ(read_text(entry_of(shape, 1, 9), 5), "") << shape;
}

TEST(ReadSubscripts, OneDimension_IsTheBareOffset) {
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY1, 0, 9), 0), "[#0]");
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY1, 3, 9), 5), "[#5]");
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY1, 0, 9), 65535), "[#65535]");
}

TEST(ReadSubscripts, TwoDimensions_DivideByTheRightmostExtent_D12) {
  const TagEntry entry = entry_of(PLC_ARRAY2, 0, 2, 0, 4);
  EXPECT_EQ(read_text(entry, 0), "[#0,#0]");
  EXPECT_EQ(read_text(entry, 2), "[#0,#2]");
  EXPECT_EQ(read_text(entry, 4), "[#1,#1]");
  EXPECT_EQ(read_text(entry, 14), "[#4,#2]");
}

TEST(ReadSubscripts, TwoDimensions_PairTheLowerBoundsCrosswise_D12) {
  const TagEntry entry = entry_of(PLC_ARRAY2, 10, 12, 20, 24);
  EXPECT_EQ(read_text(entry, 0), "[#10,#20]");
  EXPECT_EQ(read_text(entry, 4), "[#11,#21]");
}

TEST(ReadSubscripts, ThreeDimensions_DivideTwiceAndPairTheLowerBoundsCrosswise_D12) {
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY3, 0, 1, 0, 2, 0), 11), "[#1,#2,#1]");
  const TagEntry entry = entry_of(PLC_ARRAY3, 10, 11, 20, 22, 30);
  EXPECT_EQ(read_text(entry, 0), "[#10,#20,#30]");
  EXPECT_EQ(read_text(entry, 1), "[#10,#20,#31]");
  EXPECT_EQ(read_text(entry, 2), "[#10,#21,#30]");
  EXPECT_EQ(read_text(entry, 11), "[#11,#22,#31]");
}

TEST(ReadSubscripts, Divisions_AreUnsigned) {
  // An extent of 2^32 - 2: a signed one would be negative.
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY2, 3, 0, 0, 4), 7), "[#3,#7]");
  // The sums wrap around and are printed signed.
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY2, INT32_MAX, INT32_MAX, 0, 4), 1), "[#-2147483648,#0]");
}

TEST(ReadSubscripts, ZeroExtent_FormsNothing) {
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY2, 1, 0, 0, 4), 3), "none");
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY3, 1, 0, 0, 4), 3), "none");
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY3, 0, 4, 1, 0), 3), "none");
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY2, INT32_MIN, INT32_MAX, 0, 4), 3), "none") << "an extent of 2^32";
  EXPECT_EQ(read_text(entry_of(PLC_ARRAY2, 0, 4, 1, 0), 3), "[#0,#4]") << "not a divisor";
}

// The subscripts of a write of this element.
std::string write_text(bool (*form)(const TagEntry&, uint32_t, uint32_t, uint32_t, Subscripts*), const TagEntry& entry,
                       uint32_t element) {
  Subscripts subscripts;
  const auto dim1_high = static_cast<uint32_t>(entry.dim1_high);
  return form(entry, entry.shape, dim1_high, element, &subscripts) ? text_of(subscripts) : "none";
}

TEST(BitWriteSubscripts, TwoDimensions_AreThoseOfReadsAndNotOfWordWrites_D49) {
  const TagEntry entry = entry_of(PLC_ARRAY2, 1, 3, 4, 8);
  EXPECT_EQ(read_text(entry, 4), "[#2,#5]");
  EXPECT_EQ(write_text(plc::form_bit_write_subscripts, entry, 4), "[#2,#5]");
  EXPECT_EQ(write_text(plc::form_word_write_subscripts, entry, 4), "[#1,#0]");
}

TEST(BitWriteSubscripts, TwoDimensionsFromZero_AreThoseOfWordWritesToo_D49) {
  const TagEntry entry = entry_of(PLC_ARRAY2, 0, 2, 0, 4);
  EXPECT_EQ(write_text(plc::form_bit_write_subscripts, entry, 14), "[#4,#2]");
  EXPECT_EQ(write_text(plc::form_word_write_subscripts, entry, 14), "[#4,#2]");
}

TEST(SingleSubscript, Position_IsTheOnlyOne) { EXPECT_EQ(text_of(plc::form_single_subscript(1024)), "[#1024]"); }

TEST(SubscriptText, Subscripts_StandBetweenBracketsWithOrWithoutMarks) {
  Subscripts subscripts;
  subscripts.count = 3;
  subscripts.value[0] = 1;
  subscripts.value[1] = 20;
  subscripts.value[2] = 300;
  EXPECT_EQ(text_of(subscripts), "[#1,#20,#300]");
  EXPECT_EQ(text_of(subscripts, false), "[1,20,300]");
  subscripts.count = 0;
  EXPECT_EQ(text_of(subscripts), "");
}

TEST(SubscriptText, LongestNumbers_FillTheTextExactly) {
  Subscripts subscripts;
  subscripts.count = 3;
  for (int32_t& value : subscripts.value) value = INT32_MIN;
  EXPECT_EQ(text_of(subscripts), "[#-2147483648,#-2147483648,#-2147483648]");
  EXPECT_EQ(text_of(subscripts).size(), plc::kSubscriptTextBytes);
}

TEST(SubscriptUnits, Characters_AreTwoBytesBigEndian) {
  const plc::SubscriptUnits units(plc::form_single_subscript(42), true);
  ASSERT_EQ(units.length(), 5U);
  const std::string expected("\0[\0#\0004\0002\0]", 10);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(units.data()), 10), expected);
}

}  // namespace
