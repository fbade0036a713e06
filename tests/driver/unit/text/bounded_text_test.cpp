// Tests of the text in a fixed array.
#include "plc_driver/text/bounded_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using plc::BoundedText;

TEST(BoundedText, NewText_IsEmptyAndEnded) {
  const BoundedText<4> text;
  EXPECT_STREQ(text.bytes, "");
  EXPECT_EQ(text.length, 0U);
}

TEST(BoundedText, Pieces_FollowEachOther) {
  BoundedText<32> text;
  text.append("PLC");
  text.append("abcdef", 2);
  text.append_decimal(120);
  text.append_hex(0x7F000001);
  EXPECT_STREQ(text.bytes, "PLCab1207F000001");
  EXPECT_EQ(text.length, 16U);
}

TEST(BoundedText, Numbers_ReachTheirEnds) {
  BoundedText<128> text;
  text.append_decimal(0);
  text.append(" ");
  text.append_decimal(UINT32_MAX);
  text.append(" ");
  text.append_hex(0);
  text.append(" ");
  text.append_hex(UINT32_MAX);
  text.append(" ");
  text.append_signed(INT32_MIN);
  text.append(" ");
  text.append_signed(INT32_MAX);
  text.append(" ");
  text.append_signed(-1);
  text.append(" ");
  text.append_signed(0);
  EXPECT_STREQ(text.bytes, "0 4294967295 0 FFFFFFFF -2147483648 2147483647 -1 0");
}

TEST(BoundedText, WhatDoesNotFit_IsCutAndTheTextStaysEnded) {
  BoundedText<6> text;
  text.append("abc");
  text.append("defgh");
  EXPECT_STREQ(text.bytes, "abcde");
  EXPECT_EQ(text.length, 5U);
  text.append("x");
  text.append_decimal(7);
  EXPECT_STREQ(text.bytes, "abcde");
}

TEST(BoundedText, BytesBehindTheText_AreZero) {
  BoundedText<16> text;
  text.append("abc");
  EXPECT_EQ(std::string(text.bytes, sizeof text.bytes), std::string("abc") + std::string(13, '\0'));
}

}  // namespace
