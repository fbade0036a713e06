// Tests of deadbands: what counts as a change of which type.
#include "tools/plc_gateway/poll/change.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

namespace {

using plc_gateway::DataType;
using plc_gateway::has_changed;
using plc_gateway::Sample;
using plc_gateway::Variable;

Variable of_type(DataType type, double deadband) {
  Variable variable;
  variable.type = type;
  variable.deadband = deadband;
  return variable;
}

Sample number(uint64_t bits) {
  Sample sample;
  sample.good = true;
  sample.bits = bits;
  return sample;
}

Sample packed(const std::string& bytes) {
  Sample sample;
  sample.good = true;
  sample.bytes = bytes;
  return sample;
}

uint64_t real(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

uint64_t real(double value) {
  uint64_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

TEST(Change, WithoutADeadband_IsEveryOtherValue) {
  const Variable word = of_type(DataType::kInt16, 0);
  EXPECT_FALSE(has_changed(word, number(5), number(5)));
  EXPECT_TRUE(has_changed(word, number(5), number(6)));
}

TEST(Change, WithinTheDeadband_IsNone) {
  const Variable word = of_type(DataType::kInt16, 2);
  EXPECT_FALSE(has_changed(word, number(10), number(12)));
  EXPECT_TRUE(has_changed(word, number(10), number(13)));
  EXPECT_FALSE(has_changed(word, number(10), number(8)));
  EXPECT_TRUE(has_changed(word, number(10), number(7)));
}

TEST(Change, OfQuality_CountsInsideOfAnyDeadband) {
  const Variable word = of_type(DataType::kInt16, 100);
  const Sample bad;
  EXPECT_TRUE(has_changed(word, number(5), bad));
  EXPECT_TRUE(has_changed(word, bad, number(0)));
  EXPECT_FALSE(has_changed(word, bad, bad));
}

TEST(Change, AcrossZero_IsMeasuredWithTheSign) {
  const Variable word = of_type(DataType::kInt16, 2);
  EXPECT_FALSE(has_changed(word, number(0xFFFF), number(1)));
  EXPECT_TRUE(has_changed(word, number(0xFFFE), number(1)));
  const Variable unsigned_word = of_type(DataType::kUInt16, 2);
  EXPECT_TRUE(has_changed(unsigned_word, number(0xFFFF), number(1)));
}

TEST(Change, Of64Bits_IsExactAboveWhatADoubleHolds) {
  constexpr uint64_t kLarge = uint64_t{1} << 60;
  const Variable big = of_type(DataType::kUInt64, 1);
  EXPECT_FALSE(has_changed(big, number(kLarge), number(kLarge + 1)));
  EXPECT_TRUE(has_changed(big, number(kLarge), number(kLarge + 2)));
  const Variable wide = of_type(DataType::kUInt64, 9007199254740992.0);  // 2^53
  EXPECT_TRUE(has_changed(wide, number(0), number((uint64_t{1} << 53) + 1)));
  const Variable signed_big = of_type(DataType::kInt64, 1e19);
  EXPECT_TRUE(has_changed(signed_big, number(uint64_t{1} << 63), number((uint64_t{1} << 63) - 1)));
  EXPECT_FALSE(has_changed(of_type(DataType::kUInt64, 2e19), number(0), number(~uint64_t{0})));
}

TEST(Change, OfAReal_IsMeasuredAsANumber) {
  const Variable single = of_type(DataType::kFloat, 0.5);
  EXPECT_FALSE(has_changed(single, number(real(1.0F)), number(real(1.5F))));
  EXPECT_TRUE(has_changed(single, number(real(1.0F)), number(real(1.5001F))));
  const Variable twofold = of_type(DataType::kDouble, 0.5);
  EXPECT_FALSE(has_changed(twofold, number(real(-0.25)), number(real(0.25))));
  EXPECT_TRUE(has_changed(twofold, number(real(-0.26)), number(real(0.25))));
}

TEST(Change, ToOrFromNoNumber_CountsWithAnyDeadband) {
  const Variable single = of_type(DataType::kFloat, 1e30);
  const Sample nan = number(real(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_TRUE(has_changed(single, number(real(1.0F)), nan));
  EXPECT_TRUE(has_changed(single, nan, number(real(1.0F))));
  EXPECT_FALSE(has_changed(single, nan, nan));
}

TEST(Change, ToInfinity_Counts) {
  const Variable single = of_type(DataType::kFloat, 10);
  EXPECT_TRUE(has_changed(single, number(real(1.0F)), number(real(std::numeric_limits<float>::infinity()))));
}

TEST(Change, OfABoolOrAText_IgnoresTheDeadband) {
  EXPECT_TRUE(has_changed(of_type(DataType::kBoolean, 5), number(0), number(1)));
  EXPECT_TRUE(has_changed(of_type(DataType::kString, 5), packed("a"), packed("b")));
  EXPECT_FALSE(has_changed(of_type(DataType::kString, 5), packed("a"), packed("a")));
}

TEST(Change, OfAnArray_IsThatOfOneElement) {
  Variable table = of_type(DataType::kInt16Array, 2);
  table.shape = {3};
  const Sample before = packed(std::string("\x01\x00\x02\x00\xFF\xFF", 6));
  EXPECT_FALSE(has_changed(table, before, packed(std::string("\x02\x00\x04\x00\x01\x00", 6))));
  EXPECT_TRUE(has_changed(table, before, packed(std::string("\x01\x00\x02\x00\x02\x00", 6))));
  EXPECT_TRUE(has_changed(table, before, packed(std::string("\x01\x00\x02\x00", 4))));
}

}  // namespace
