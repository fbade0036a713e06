// The guarded build's lines, each byte of each, on standard output and in a sink.
#include "plc_driver/guard_lines.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <functional>
#include <string>

#include "tests/support/sunk_lines.h"

namespace plc_test::guard_lines {
namespace {

TEST(GuardLines, EachLine_IsTheSameOnStandardOutputAndInASink) {
  struct Print {
    std::function<void()> print;
    std::string line;
  };
  const Print prints[] = {
      {[] { plc::print_guard("bytes behind the reply"); }, "bytes behind the reply"},
      {[] { plc::print_connect_error(ECONNREFUSED); }, "connect refused"},
      {[] { plc::print_connect_error(EHOSTUNREACH); }, "no route to the controller"},
      {[] { plc::print_connect_error(ENETUNREACH); }, "no route to the controller"},
      {[] { plc::print_connect_error(12345); }, "connect failed, error 12345"},
      {[] { plc::print_cut_off(13); }, "reply cut off, 13 bytes in time"},
      {[] { plc::print_connection_lost(104); }, "connection lost, error 104"},
      {[] { plc::print_dropped(2); }, "2 late replies dropped"},
      {[] { plc::print_incomplete_names(3, 4); }, "3 of 4 names resolved"},
      {[] { plc::print_wrong_values(6, 8); }, "6 bytes of values, 8 were asked for"},
      {[] { plc::print_wrong_values(UINT32_MAX, UINT32_MAX); },
       "4294967295 bytes of values, 4294967295 were asked for"},
      {[] { plc::print_incomplete_directory(1, 2); }, "1 of 2 programs in the directory"},
      {[] { plc::print_refused("the names", 0xA4); }, "controller refused the names, status 00A4"},
      {[] { plc::print_refused("the directory", UINT32_MAX); }, "controller refused the directory, status FFFFFFFF"},
  };
  for (const Print& print : prints) {
    SCOPED_TRACE(print.line);
    const PrintedTwice printed = print_twice(print.print);
    EXPECT_EQ(printed.output, "[PLC] guard: " + print.line + "\r\n");
    EXPECT_EQ(printed.sunk, printed.output);
    EXPECT_EQ(printed.output_beside_sink, "");
  }
}

}  // namespace
}  // namespace plc_test::guard_lines
