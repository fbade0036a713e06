// Tests of the driver's subscript rules as the host tool knows them, and of their inversion.
#include "client/tags/element_offset.h"

#include <gtest/gtest.h>

#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using plc_client_test::kBool;
using plc_client_test::kDint;
using plc_client_test::kEm;
using plc_client_test::kInt;
using plc_client_test::kLint;
using plc_client_test::make_entry;

std::optional<uint32_t> read_offset(const TagEntry& entry, const Subscripts& wanted) {
  return find_element_offset(entry, Direction::kRead, wanted, 0);
}

std::optional<uint32_t> write_offset(const TagEntry& entry, const Subscripts& wanted) {
  return find_element_offset(entry, Direction::kWrite, wanted, 0);
}

TEST(ElementOffset, Scalar_HasOneElementWithoutSubscripts) {
  const TagEntry entry = make_entry("Speed", kInt);
  EXPECT_EQ(declared_ranges(entry).size(), 0U);
  EXPECT_EQ(read_offset(entry, {}), 0U);
  EXPECT_EQ(write_offset(entry, {}), 0U);
}

TEST(ElementOffset, DeclaredRanges_FirstDeclaredComesFirst) {
  const std::vector<SubscriptRange> ranges = declared_ranges(make_entry("C", kInt, {{1, 2}, {3, 4}, {5, 6}}));
  ASSERT_EQ(ranges.size(), 3U);
  EXPECT_EQ(ranges[0].low, 1);
  EXPECT_EQ(ranges[1].high, 4);
  EXPECT_EQ(ranges[2].low, 5);
}

TEST(ElementOffset, OneDimension_OffsetIsTheSubscript) {
  const TagEntry entry = make_entry("Table", kInt, {{1, 10}});
  EXPECT_EQ(read_offset(entry, {5}), 5U);
  EXPECT_EQ(write_offset(entry, {10}), 10U);
}

TEST(ElementOffset, NegativeSubscript_HasNoOffset) {
  const TagEntry entry = make_entry("Table", kInt, {{-3, 3}});
  EXPECT_EQ(read_offset(entry, {-1}), std::nullopt);
  EXPECT_EQ(write_offset(entry, {-1}), std::nullopt);
  EXPECT_EQ(read_offset(entry, {2}), 2U);
}

TEST(ElementOffset, TwoDimensionsFromZero_LastSubscriptRunsFastest) {
  const TagEntry entry = make_entry("Grid", kInt, {{0, 2}, {0, 4}});
  EXPECT_EQ(read_offset(entry, {1, 3}), 8U);
  EXPECT_EQ(write_offset(entry, {1, 3}), 8U);
}

TEST(ElementOffset, TwoDimensionRead_PairsLowerBoundsCrosswise) {
  // Ranges 2..3 and 10..12: the driver starts at the last range's lower bound with its first subscript.
  const TagEntry entry = make_entry("Grid", kInt, {{2, 3}, {10, 12}});
  EXPECT_EQ(subscripts_at(entry, Direction::kRead, 0), (Subscripts{10, 2}));
  EXPECT_EQ(subscripts_at(entry, Direction::kRead, 4), (Subscripts{11, 3}));
  EXPECT_EQ(read_offset(entry, {2, 10}), std::nullopt);
}

TEST(ElementOffset, TwoDimensionWordWrite_KnowsNoLowerBounds) {
  const TagEntry entry = make_entry("Grid", kInt, {{1, 3}, {1, 4}});
  EXPECT_EQ(subscripts_at(entry, Direction::kWrite, 6), (Subscripts{1, 1}));
  EXPECT_EQ(write_offset(entry, {2, 4}), 14U);
  EXPECT_EQ(read_offset(entry, {2, 4}), 7U);
}

TEST(ElementOffset, TwoDimensionBitWrite_FollowsTheReadRule) {
  const TagEntry entry = make_entry("Bits", kBool, {{1, 3}, {1, 4}});
  EXPECT_EQ(write_offset(entry, {2, 4}), 7U);
  EXPECT_EQ(read_offset(entry, {2, 4}), 7U);
}

TEST(ElementOffset, ThreeDimensionsUnevenFromZero_ReadAndWriteAgree) {
  const TagEntry entry = make_entry("Cube", kDint, {{0, 1}, {0, 2}, {0, 3}});
  EXPECT_EQ(read_offset(entry, {1, 2, 3}), 23U);
  EXPECT_EQ(write_offset(entry, {1, 2, 3}), 23U);
  EXPECT_EQ(read_offset(entry, {1, 0, 0}), 12U);
}

TEST(ElementOffset, ThreeDimensionsLowerBounds_FirstAndLastAreExchanged) {
  const TagEntry entry = make_entry("Cube", kDint, {{1, 2}, {5, 6}, {3, 4}});
  EXPECT_EQ(subscripts_at(entry, Direction::kRead, 0), (Subscripts{3, 5, 1}));
  EXPECT_EQ(subscripts_at(entry, Direction::kWrite, 0), (Subscripts{3, 5, 1}));
}

TEST(ElementOffset, ZeroExtent_NamesNothing) {
  const TagEntry entry = make_entry("Grid", kInt, {{0, 2}, {1, 0}});
  EXPECT_EQ(subscripts_at(entry, Direction::kRead, 0), std::nullopt);
  EXPECT_EQ(read_offset(entry, {0, 0}), std::nullopt);
}

TEST(ElementOffset, SmallestExtentBySmallest_DoesNotTrap) {
  const TagEntry entry = make_entry("Cube", kInt, {{0, 1}, {0, 1}, {0, -2}});
  EXPECT_EQ(subscripts_at(entry, Direction::kWrite, 5), (Subscripts{-2, -1, 0}));
}

TEST(ElementOffset, WideType_OffsetsReachHalfAsFar) {
  const TagEntry entry = make_entry("Long", kLint, {{0, 40000}});
  EXPECT_EQ(host_units_per_element(entry), 2U);
  EXPECT_EQ(read_offset(entry, {32767}), 32767U);
  EXPECT_EQ(read_offset(entry, {32768}), std::nullopt);
}

TEST(ElementOffset, HintBehindTheElement_SearchGoesRound) {
  const TagEntry entry = make_entry("Table", kInt, {{0, 100}});
  EXPECT_EQ(find_element_offset(entry, Direction::kRead, {3}, 50), 3U);
}

TEST(ElementOffset, EmBits_AreBoolArraysInEmMemory) {
  TagEntry entry = make_entry("Bits", kBool, {{0, 7}});
  EXPECT_FALSE(is_em_bit_array(entry));
  entry.device_kind = kEm;
  EXPECT_TRUE(is_em_bit_array(entry));
}

TEST(ElementOffset, SubscriptText_IsBracketed) {
  EXPECT_EQ(subscript_text({}), "");
  EXPECT_EQ(subscript_text({1, -2}), "[1,-2]");
}

}  // namespace
}  // namespace plc_client::core
