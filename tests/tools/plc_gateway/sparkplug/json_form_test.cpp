// Tests of values as JSON.
#include <gtest/gtest.h>

#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway::json_form_test {
namespace {

// The value alone, as it stands in a good sample of the moment 0.
std::string value(DataType type, uint64_t bits, const std::string& bytes = {}, std::vector<size_t> shape = {}) {
  Variable variable;
  variable.type = type;
  variable.shape = std::move(shape);
  Sample sample;
  sample.good = true;
  sample.bits = bits;
  sample.bytes = bytes;
  const std::string json = json_of(variable, sample, false);
  const std::string begin = "{\"value\":";
  const std::string end = ",\"quality\":\"good\",\"time\":\"1970-01-01T00:00:00.000Z\"}";
  if (json.size() < begin.size() + end.size() || json.substr(json.size() - end.size()) != end) return json;
  return json.substr(begin.size(), json.size() - begin.size() - end.size());
}

TEST(JsonForm, ValueThatNobodyChecked_IsUnguarded) {
  Sample sample;
  sample.good = true;
  sample.unguarded = true;
  EXPECT_EQ(json_of({}, sample, false), R"({"value":0,"quality":"unguarded","time":"1970-01-01T00:00:00.000Z"})");
}

TEST(JsonForm, SingleValues_AreShortest) {
  EXPECT_EQ(value(DataType::kInt16, 0xFFFE), "-2");
  EXPECT_EQ(value(DataType::kInt64, uint64_t{1} << 63), "-9223372036854775808");
  EXPECT_EQ(value(DataType::kUInt64, ~uint64_t{0}), "18446744073709551615");
  EXPECT_EQ(value(DataType::kUInt16, 0xFFFE), "65534");
  EXPECT_EQ(value(DataType::kFloat, 0x3DCCCCCD), "0.1");
  EXPECT_EQ(value(DataType::kDouble, 0x3FB999999999999A), "0.1");
  EXPECT_EQ(value(DataType::kBoolean, 1), "true");
  EXPECT_EQ(value(DataType::kBoolean, 0), "false");
  EXPECT_EQ(value(DataType::kBytes, 0, std::string("\x00\xAF", 2)), "\"00 AF\"");
}

TEST(JsonForm, WhatIsNoNumber_IsNullWithItsWord) {
  const auto null = [](const std::string& word) {
    return R"({"value":null,"quality":"good","reason":")" + word + R"(","time":"1970-01-01T00:00:00.000Z"})";
  };
  EXPECT_EQ(value(DataType::kFloat, 0x7F800000), null("infinity"));
  EXPECT_EQ(value(DataType::kDouble, 0xFFF0000000000000), null("minus infinity"));
  EXPECT_EQ(value(DataType::kFloat, 0x7FC00000), null("not a number"));
}

TEST(JsonForm, ElementsThatAreNoNumbers_AreNullWithTheirFirstPlaces) {
  const std::string bytes("\0\0\xC0\x3F\0\0\xC0\x7F\0\0\x80\x7F\0\0\xC0\x7F", 16);
  EXPECT_EQ(value(DataType::kFloatArray, 0, bytes, {4}),
            R"({"value":[1.5,null,null,null],"quality":"good","reason":"not a number: element 2; infinity: element 3",)"
            R"("time":"1970-01-01T00:00:00.000Z"})");
}

TEST(JsonForm, Text_IsEscaped) {
  EXPECT_EQ(value(DataType::kString, 0, "a\"\\\n\xC3\x96"), "\"a\\\"\\\\\\n\xC3\x96\"");
}

TEST(JsonForm, Arrays_AreListsInTheirShape) {
  EXPECT_EQ(value(DataType::kInt16Array, 0, std::string("\x01\x00\xFE\xFF", 4), {2}), "[1,-2]");
  EXPECT_EQ(value(DataType::kUInt8Array, 0, "\x01\x02\x03\x04\x05\x06", {2, 3}), "[[1,2,3],[4,5,6]]");
  EXPECT_EQ(value(DataType::kBooleanArray, 0, std::string("\x03\x00\x00\x00\xA0", 5), {3}), "[true,false,true]");
  EXPECT_EQ(value(DataType::kStringArray, 0, std::string("a\"\0\0", 4), {2}), "[\"a\\\"\",\"\"]");
}

TEST(JsonForm, NotGood_IsNullWithTheReason) {
  Sample sample;
  sample.time = 1700000000123;
  sample.reason = plc_client::Reason::kNoAnswer;
  EXPECT_EQ(
      json_of({}, sample, true),
      R"({"value":null,"quality":"bad","reason":"no-answer","time":"2023-11-14T22:13:20.123Z","historical":true})");
  sample.reason = plc_client::Reason::kNone;
  EXPECT_EQ(json_of({}, sample, false), R"({"value":null,"quality":"bad","time":"2023-11-14T22:13:20.123Z"})");
}

TEST(JsonForm, TimeBefore1970_IsTold) {
  Sample sample;
  sample.good = true;
  sample.time = -1;
  EXPECT_EQ(json_of({}, sample, false), R"({"value":0,"quality":"good","time":"1969-12-31T23:59:59.999Z"})");
}

}  // namespace
}  // namespace plc_gateway::json_form_test
