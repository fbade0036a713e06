// Tests of the driver's printed lines: each byte of each, line ends included.
#include "plc_driver/diagnostics.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "plc_driver/protocol/link/connection.h"
#include "tests/support/captured_output.h"

namespace {

using plc_test::capture_output;

TEST(Diagnostics, Lines_EndInCarriageReturnAndLineFeed) {
  EXPECT_EQ(capture_output([] { plc::print_line("--err--"); }), "--err--\r\n");
  EXPECT_EQ(capture_output([] { plc::print_server_address("10.0.0.1"); }), "server ip = 10.0.0.1\r\n");
  EXPECT_EQ(capture_output([] { plc::print_build_table("PLC1_0.csv"); }), "build tag table for PLC1_0.csv\r\n");
}

TEST(Diagnostics, Texts_HaveNoLineEnd) {
  EXPECT_EQ(capture_output([] { plc::print_text("build tag table failed!"); }), "build tag table failed!");
}

TEST(Diagnostics, LineFeedAlone_EndsTheseTwo) {
  EXPECT_EQ(capture_output([] { plc::print_send_error(); }), "send error\n");
  EXPECT_EQ(capture_output([] { plc::print_build_failed_line(); }), "build tag table failed!\n");
}

TEST(Diagnostics, LocatedLines_NameTheSourceLine) {
  EXPECT_EQ(capture_output([] { plc::print_open_failed("PLC1_0.csv", 42); }),
            "[PLC] open PLC1_0.csv file failed, at line: 42\r\n");
  EXPECT_EQ(capture_output([] { plc::print_tag_missing(5, "PLC1_0.csv", 3, 42); }),
            "[PLC] tag id 5 is not exist in this tag list PLC1_0.csv, max:3, at line: 42\r\n");
}

TEST(Diagnostics, RejectedFile_NamesTheFileTheLineAndTheReason) {
  EXPECT_EQ(capture_output([] { plc::print_file_rejected("PLC1_0.csv", 17, "more than 100 runs of ids"); }),
            "[PLC] tag file PLC1_0.csv rejected, line 17: more than 100 runs of ids\r\n");
}

TEST(Diagnostics, PercentSigns_ArePlainText) {
  EXPECT_EQ(capture_output([] { plc::print_line("%n%s"); }), "%n%s\r\n");
  EXPECT_EQ(capture_output([] { plc::print_text("%n%s"); }), "%n%s");
  EXPECT_EQ(capture_output([] { plc::print_build_table("%n%s"); }), "build tag table for %n%s\r\n");
  EXPECT_EQ(capture_output([] { plc::print_structure_bit_name("a.%n%s"); }), "tagName:a.%n%s\r\n");
}

// "%p (%04d) :" and a tab, as the dump writes it before each row.
std::string row_head(const uint8_t* at, int index) {
  char text[64];
  std::snprintf(text, sizeof text, "%p (%04d) :\t", static_cast<const void*>(at), index);
  return text;
}

TEST(FlushBuff, Bytes_StandInRowsOfTwenty) {
  uint8_t bytes[41];
  std::string rows[3];
  for (int i = 0; i < 41; ++i) {
    bytes[i] = static_cast<uint8_t>(0xF0 + i);
    char number[8];
    std::snprintf(number, sizeof number, "%02x ", bytes[i]);
    rows[i / 20] += number;
  }
  const auto dump = [&](int32_t length) { return capture_output([&] { FlushBuff(1, bytes, length); }); };
  EXPECT_EQ(dump(1), row_head(bytes, 0) + "f0 \r\n");
  EXPECT_EQ(dump(20), row_head(bytes, 0) + rows[0] + "\r\n");
  EXPECT_EQ(dump(41), row_head(bytes, 0) + rows[0] + "\r\n" + row_head(bytes + 20, 20) + rows[1] + "\r\n" +
                          row_head(bytes + 40, 40) + rows[2] + "\r\n");
}

TEST(FlushBuff, NoBytes_GiveALineEndAlone) {
  const uint8_t byte = 1;
  EXPECT_EQ(capture_output([&] { FlushBuff(1, &byte, 0); }), "\r\n");
  EXPECT_EQ(capture_output([&] { FlushBuff(7, &byte, -5); }), "\r\n");
}

TEST(FlushBuff, NullPointerOrDisabled_PrintsNothing) {
  const uint8_t byte = 1;
  EXPECT_EQ(capture_output([&] { FlushBuff(0, &byte, 1); }), "");
  EXPECT_EQ(capture_output([&] { FlushBuff(1, nullptr, 1); }), "");
  EXPECT_EQ(capture_output([&] { FlushBuff(1, nullptr, 0); }), "");
}

}  // namespace
