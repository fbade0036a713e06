// Tests of the hex dumps, byte for byte.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/captured_output.h"
#include "universal_api.h"

namespace {

using plc_test::capture_output;

constexpr uint8_t kTwelveBytes[] = {0x00, 0x01, 0x7F, 0x80, 0xFF, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B};

TEST(DumpB, TwelveBytes_BreakTheLineBeforeFirstAndEleventh) {
  EXPECT_EQ(capture_output([] { dump_b(kTwelveBytes, 12); }),
            "[dump_b] len=12\r\n"
            "0x00 0x01 0x7f 0x80 0xff 0x05 0x06 0x07 0x08 0x09 \r\n"
            "0x0a 0x0b \r\n");
}

TEST(DumpB, TenBytes_FillOneLine) {
  EXPECT_EQ(capture_output([] { dump_b(kTwelveBytes, 10); }),
            "[dump_b] len=10\r\n"
            "0x00 0x01 0x7f 0x80 0xff 0x05 0x06 0x07 0x08 0x09 \r\n");
}

TEST(DumpB, OneByte_IsPrintedAlone) {
  EXPECT_EQ(capture_output([] { dump_b(kTwelveBytes, 1); }), "[dump_b] len=1\r\n0x00 \r\n");
}

TEST(DumpB, LengthZero_PrintsTheHeadAlone) {
  EXPECT_EQ(capture_output([] { dump_b(nullptr, 0); }), "[dump_b] len=0\r\n");
}

TEST(DumpB, NegativeLength_PrintsTheHeadAlone) {
  EXPECT_EQ(capture_output([] { dump_b(nullptr, -1); }), "[dump_b] len=-1\r\n");
  EXPECT_EQ(capture_output([] { dump_b(nullptr, INT32_MIN); }), "[dump_b] len=-2147483648\r\n");
}

TEST(DumpB, Result_IsThatOfTheLastPuts) {
  int expected = 0;
  int with_bytes = 0;
  int without_bytes = 0;
  capture_output([&] {
    expected = std::puts("\r");
    with_bytes = dump_b(kTwelveBytes, 12);
    without_bytes = dump_b(kTwelveBytes, 0);
  });
  EXPECT_GE(expected, 0);
  EXPECT_EQ(with_bytes, expected);
  EXPECT_EQ(without_bytes, expected);
}

TEST(Dump, TwelveBytes_StandBelowTheCallersTitleAndATab) {
  EXPECT_EQ(capture_output([] { _dump("reply", kTwelveBytes, 12); }),
            "[reply]\tlen=12\r\n"
            "0x00 0x01 0x7f 0x80 0xff 0x05 0x06 0x07 0x08 0x09 \r\n"
            "0x0a 0x0b \r\n");
}

TEST(Dump, TitleWithPercent_IsPlainText) {
  EXPECT_EQ(capture_output([] { _dump("100%s", kTwelveBytes, 0); }), "[100%s]\tlen=0\r\n");
}

TEST(Dump, Result_IsThatOfTheLastPuts) {
  int expected = 0;
  int actual = 0;
  capture_output([&] {
    expected = std::puts("\r");
    actual = _dump("", kTwelveBytes, 3);
  });
  EXPECT_EQ(actual, expected);
}

}  // namespace
