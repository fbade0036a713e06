// Tests of the decimal reader.
#include "plc_driver/tags/decimal.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>

namespace plc {
static bool operator==(const Decimal& a, const Decimal& b) { return a.value == b.value && a.used == b.used; }
static std::ostream& operator<<(std::ostream& out, const Decimal& number) {
  return out << number.value << " in " << number.used << " characters";
}
}  // namespace plc

namespace {

using plc::Decimal;

Decimal decimal_of(const char* text) { return plc::parse_decimal(text, static_cast<uint32_t>(std::strlen(text))); }

TEST(Decimal, Digits_AreReadUpToTheFirstOtherCharacter) {
  EXPECT_EQ(decimal_of("0"), (Decimal{0, 1}));
  EXPECT_EQ(decimal_of("120"), (Decimal{120, 3}));
  EXPECT_EQ(decimal_of("12a4"), (Decimal{12, 2}));
  EXPECT_EQ(decimal_of("007"), (Decimal{7, 3}));
  EXPECT_EQ(decimal_of("1_2"), (Decimal{1, 1}));
}

TEST(Decimal, SpaceAndSign_AreTakenIn) {
  EXPECT_EQ(decimal_of(" \t\n\v\f\r-5"), (Decimal{-5, 8}));
  EXPECT_EQ(decimal_of("+5"), (Decimal{5, 2}));
}

TEST(Decimal, NoDigit_UsesNothing) {
  EXPECT_EQ(decimal_of(""), (Decimal{0, 0}));
  EXPECT_EQ(decimal_of("  "), (Decimal{0, 0}));
  EXPECT_EQ(decimal_of("-"), (Decimal{0, 0}));
  EXPECT_EQ(decimal_of("+-1"), (Decimal{0, 0}));
  EXPECT_EQ(decimal_of("- 1"), (Decimal{0, 0}));
  EXPECT_EQ(decimal_of("x1"), (Decimal{0, 0}));
}

TEST(Decimal, EndsOfTheRange_AreReached) {
  EXPECT_EQ(decimal_of("2147483647"), (Decimal{INT32_MAX, 10}));
  EXPECT_EQ(decimal_of("-2147483648"), (Decimal{INT32_MIN, 11}));
}

TEST(Decimal, BeyondTheRangeOf32Bits_SaturatesOnEveryBuild) {
  EXPECT_EQ(decimal_of("2147483648"), (Decimal{INT32_MAX, 10}));
  EXPECT_EQ(decimal_of("4294967296"), (Decimal{INT32_MAX, 10}));
  EXPECT_EQ(decimal_of("-2147483649"), (Decimal{INT32_MIN, 11}));
  EXPECT_EQ(decimal_of("99999999999999999999999"), (Decimal{INT32_MAX, 23}));
  EXPECT_EQ(decimal_of("-99999999999999999999999"), (Decimal{INT32_MIN, 24}));
}

TEST(Decimal, Length_BoundsWhatIsRead) {
  EXPECT_EQ(plc::parse_decimal("12345", 3), (Decimal{123, 3}));
  EXPECT_EQ(plc::parse_decimal("12345", 0), (Decimal{0, 0}));
  EXPECT_EQ(plc::parse_decimal("-5", 1), (Decimal{0, 0}));
}

}  // namespace
