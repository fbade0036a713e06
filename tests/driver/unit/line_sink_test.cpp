// Tests of the sink for the driver's lines: it gets what standard output would, and standard output nothing.
#include <gtest/gtest.h>

#include <stdio_ext.h>

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "plc_driver/diagnostics.h"
#include "plc_driver/protocol/link/connection.h"
#include "tests/support/sunk_lines.h"

namespace {

using plc_test::capture_output;
using plc_test::print_twice;
using plc_test::PrintedTwice;
using plc_test::SunkLines;

const uint8_t kBytes[21] = {0xF0, 1};

struct Print {
  const char* what;
  std::function<void()> print;
  size_t pieces;
};

const std::vector<Print>& prints() {
  static const std::vector<Print> all = {
      {"line", [] { plc::print_line("--err--"); }, 2},
      {"line of format characters", [] { plc::print_line("%n%s"); }, 2},
      {"text", [] { plc::print_text("malloc name failed"); }, 1},
      {"empty text", [] { plc::print_text(""); }, 1},
      {"numbers", [] { plc::print_numbers("%u of %d\r\n", 7U, -1); }, 1},
      {"server address", [] { plc::print_server_address("10.0.0.1"); }, 3},
      {"build table", [] { plc::print_build_table("PLC1_0.csv"); }, 3},
      {"open failed", [] { plc::print_open_failed("PLC1_0.csv", 42); }, 3},
      {"file rejected", [] { plc::print_file_rejected("PLC1_0.csv", 17, "larger than 256 MiB"); }, 5},
      {"tag missing", [] { plc::print_tag_missing(5, "PLC1_0.csv", 3, 42); }, 3},
      {"tag missing on write", [] { plc::print_tag_missing_on_write(5, "PLC1_0.csv", 3); }, 3},
      {"structure bit", [] { plc::print_structure_bit_name("Part.Bits[#1]"); }, 3},
      {"send error", [] { plc::print_send_error(); }, 1},
      {"build failed", [] { plc::print_build_failed_line(); }, 1},
      {"hex dump", [] { FlushBuff(1, kBytes, 21); }, 25},
      {"type name", [] { type2str(0xFFFFFF); }, 1},
  };
  return all;
}

TEST(LineSink, EveryPrintFunction_GivesTheBytesOfStandardOutput) {
  for (const Print& print : prints()) {
    SCOPED_TRACE(print.what);
    const PrintedTwice printed = print_twice(print.print);
    EXPECT_EQ(printed.sunk, printed.output);
    EXPECT_EQ(printed.output_beside_sink, "");
    EXPECT_EQ(printed.pieces.size(), print.pieces);
  }
}

TEST(LineSink, Line_ComesInPiecesInItsOrder) {
  const SunkLines sink;
  plc::print_line("--timeout--");
  plc::print_open_failed("a.csv", 7);
  EXPECT_EQ(sink.pieces(),
            (std::vector<std::string>{"--timeout--", "\r\n", "[PLC] open ", "a.csv", " file failed, at line: 7\r\n"}));
}

TEST(LineSink, Null_BringsStandardOutputBack) {
  const SunkLines sink;
  plc::print_text("in");
  plc_driver_set_line_sink(nullptr, nullptr);
  EXPECT_EQ(capture_output([] {
              plc::print_text("out");
              plc::print_build_table("x");
            }),
            "outbuild tag table for x\r\n");
  EXPECT_EQ(sink.text(), "in");
}

TEST(LineSink, SecondSink_TakesThePlaceOfTheFirst) {
  const SunkLines first;
  const SunkLines second;
  plc::print_text("text");
  EXPECT_EQ(first.text(), "");
  EXPECT_EQ(second.text(), "text");
}

// What a host sees of a dump is whole, whatever ends the process.
TEST(LineSink, HexDump_FlushesStandardOutputWithoutASinkAlone) {
  const uint8_t byte = 1;
  const auto pending_behind_dump = [&] {
    size_t pending = 0;
    capture_output([&] {
      std::fputs("x", stdout);
      FlushBuff(1, &byte, 0);
      pending = __fpending(stdout);
    });
    return pending;
  };
  EXPECT_EQ(pending_behind_dump(), 0U);
  const SunkLines sink;
  EXPECT_EQ(pending_behind_dump(), 1U);
}

// The most digits that each text with numbers can have, within the room in which it is formed.
TEST(LineSink, LongestNumbers_AreWhole) {
  const PrintedTwice printed = print_twice([] {
    plc::print_tag_missing(0x80000000, "f", 0x80000000, INT32_MIN);
    plc::print_tag_missing_on_write(0x80000000, "f", 0x80000000);
    plc::print_file_rejected("f", UINT32_MAX, "r");
    plc::print_open_failed("f", INT32_MIN);
  });
  EXPECT_EQ(printed.sunk,
            "[PLC] tag id -2147483648 is not exist in this tag list f, max:-2147483648, at line: -2147483648\r\n"
            "tag id -2147483648 is not exist in this tag list f, id_max:-2147483648\n"
            "[PLC] tag file f rejected, line 4294967295: r\r\n"
            "[PLC] open f file failed, at line: -2147483648\r\n");
  EXPECT_EQ(printed.output, printed.sunk);
}

TEST(LineSink, PathsAndNamesOfAnyLength_AreWhole) {
  const std::string path(5000, 'p');
  const PrintedTwice printed = print_twice([&] {
    plc::print_line(path.c_str());
    plc::print_build_table(path.c_str());
    plc::print_open_failed(path.c_str(), 7);
    plc::print_file_rejected(path.c_str(), 7, path.c_str());
    plc::print_tag_missing(1, path.c_str(), 2, 3);
    plc::print_tag_missing_on_write(1, path.c_str(), 2);
  });
  EXPECT_EQ(printed.sunk, path + "\r\nbuild tag table for " + path + "\r\n[PLC] open " + path +
                              " file failed, at line: 7\r\n[PLC] tag file " + path + " rejected, line 7: " + path +
                              "\r\n[PLC] tag id 1 is not exist in this tag list " + path +
                              ", max:2, at line: 3\r\ntag id 1 is not exist in this tag list " + path + ", id_max:2\n");
  EXPECT_EQ(printed.output, printed.sunk);
}

}  // namespace
