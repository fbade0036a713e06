// Tests of numbers and words in messages, and of JSON.
#include "base/text.h"

#include <gtest/gtest.h>

#include "base/json_text.h"

namespace plc_base {
namespace {

TEST(Text, Hexadecimal_HasAtLeastTheDigits) {
  EXPECT_EQ(hexadecimal(0x1A, 4), "0x001A");
  EXPECT_EQ(hexadecimal(0xFFFFFFFF, 1), "0xFFFFFFFF");
}

TEST(Text, Plural_FollowsTheNumber) {
  EXPECT_EQ(plural(0, "byte"), "0 bytes");
  EXPECT_EQ(plural(1, "byte"), "1 byte");
  EXPECT_EQ(plural(2, "byte"), "2 bytes");
}

TEST(GroupedNumber, Thousands_AreApart) {
  EXPECT_EQ(grouped_number(0), "0");
  EXPECT_EQ(grouped_number(999), "999");
  EXPECT_EQ(grouped_number(1000), "1,000");
  EXPECT_EQ(grouped_number(34454), "34,454");
  EXPECT_EQ(grouped_number(1234567), "1,234,567");
}

TEST(Text, Milliseconds_HaveTheDecimalsThatAreAskedFor) {
  EXPECT_EQ(milliseconds_text(1234567, 0), "1 ms");
  EXPECT_EQ(milliseconds_text(1234567, 1), "1.2 ms");
  EXPECT_EQ(milliseconds_text(1235000000, 2), "1235.00 ms");
  EXPECT_EQ(milliseconds_text(0, 2), "0.00 ms");
}

TEST(ToldName, WhatIsNotSeenOfIt_IsQuoted) {
  for (const char* name : {"", " ", "Main ", "Main\u00A0", "Main\u2003/Count", "\tMain", "Main /Count", "C:", ":8500",
                           "plc-host\uFF1A", "plc-host\uA789", "\u2236x", "\u2800Main", "Main\u2800"})
    EXPECT_EQ(told_name(name), "'" + std::string(name) + "'");
  for (const char* name : {"Main", "Main/Count", "Main Valve", "C:1", "C\u22361", "/tmp/a b"})
    EXPECT_EQ(told_name(name), name);
}

TEST(JsonText, BytesThatAreNoUtf8_AreReplaced) {
  EXPECT_EQ(json_text(nlohmann::json("a\xFF")), "\"a\xEF\xBF\xBD\"");
  EXPECT_EQ(json_line(nlohmann::json("a\xFF")), "\"a\xEF\xBF\xBD\"\n");
  EXPECT_EQ(ascii_json_line(nlohmann::json("a\xFF")), "\"a\\ufffd\"\n");
}

TEST(JsonText, WhatATerminalObeys_IsEscaped) {
  EXPECT_EQ(json_line(nlohmann::json("a\n\xC2\x9B\xE2\x80\xAE\x7F")), "\"a\\n\\u009b\\u202e\\u007f\"\n");
}

TEST(JsonText, Members_KeepTheOrderOfTheirKindOfObject) {
  nlohmann::ordered_json as_written;
  as_written["b"] = 1;
  as_written["a"] = nullptr;
  EXPECT_EQ(json_line(as_written), "{\"b\":1,\"a\":null}\n");
  EXPECT_EQ(json_text(nlohmann::json{{"b", 1}, {"a", 2}}), "{\"a\":2,\"b\":1}");
}

TEST(JsonText, Indent_GivesALinePerMember) {
  EXPECT_EQ(json_text(nlohmann::json{{"a", 1}, {"b", "x"}}, 2), "{\n  \"a\": 1,\n  \"b\": \"x\"\n}");
}

}  // namespace
}  // namespace plc_base
