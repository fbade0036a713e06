// Tests of what hosts send: commands in bytes of their own, and the state of a host.
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/bytes.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway::payload_reader_test {
namespace {

using plc_test::Bytes;
using plc_test::from_hex;
using Form = CommandMetric::Form;

std::optional<CommandMessage> read(std::string_view hex) {
  const Bytes bytes = from_hex(hex);
  return read_command(std::string(bytes.begin(), bytes.end()));
}

CommandMetric only_metric(std::string_view hex) {
  const auto message = read(hex);
  if (!message || message->metrics.size() != 1) {
    ADD_FAILURE() << "no command of one metric: " << hex;
    return {};
  }
  return message->metrics[0];
}

TEST(PayloadReader, CommandOfAHost_IsTakenApart) {
  const auto message = read(
      "08 90 03 "                                // time 400
      "12 0A 10 07 18 AC 02 20 02 38 00 50 05 "  // a length that ends within the value: no payload
      "18 01");
  EXPECT_FALSE(message);
  const auto whole = read(
      "08 90 03 "
      "12 0B 10 07 18 AC 02 20 02 38 00 50 05 "  // alias 7, time 300, Int16, not null, int_value 5
      "12 05 0A 01 41 70 01 "                    // "A", boolean_value true
      "18 01");
  ASSERT_TRUE(whole);
  EXPECT_EQ(whole->time, 400);
  ASSERT_EQ(whole->metrics.size(), 2U);
  EXPECT_EQ(whole->metrics[0].name, "");
  EXPECT_EQ(whole->metrics[0].alias, 7U);
  EXPECT_EQ(whole->metrics[0].time, 300);
  EXPECT_EQ(whole->metrics[0].datatype, 2U);
  EXPECT_FALSE(whole->metrics[0].is_null);
  EXPECT_EQ(whole->metrics[0].form, Form::kInt);
  EXPECT_EQ(whole->metrics[0].number, 5U);
  EXPECT_EQ(whole->metrics[1].name, "A");
  EXPECT_EQ(whole->metrics[1].alias, std::nullopt);
  EXPECT_EQ(whole->metrics[1].time, std::nullopt);
  EXPECT_EQ(whole->metrics[1].datatype, std::nullopt);
  EXPECT_EQ(whole->metrics[1].form, Form::kBool);
  EXPECT_EQ(whole->metrics[1].number, 1U);
}

TEST(PayloadReader, NumberBeyondItsField_IsNoOtherNumber) {
  EXPECT_EQ(only_metric("12 08 20 02 50 FF FF FF FF 0F").number, 0xFFFFFFFFU);
  EXPECT_EQ(only_metric("12 08 20 02 50 FF FF FF FF 0F").form, Form::kInt);
  EXPECT_EQ(only_metric("12 09 20 02 50 CD 80 80 80 80 20").form, Form::kOther) << "2 to the 40, and 77";
  EXPECT_EQ(only_metric("12 08 20 83 80 80 80 10 50 05").form, Form::kOther) << "a data type of 2 to the 32, and 3";
}

TEST(PayloadReader, MarkOfHistory_IsTold) {
  EXPECT_TRUE(only_metric("12 04 10 01 28 01").is_historical);
  EXPECT_FALSE(only_metric("12 04 10 01 28 00").is_historical);
  EXPECT_FALSE(only_metric("12 02 10 01").is_historical);
}

TEST(PayloadReader, EachForm_IsTold) {
  EXPECT_EQ(only_metric("12 02 10 01").form, Form::kNone);
  EXPECT_EQ(only_metric("12 06 50 FF FF FF FF 0F").number, 4294967295U);
  EXPECT_EQ(only_metric("12 0B 58 FF FF FF FF FF FF FF FF FF 01").number, std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(only_metric("12 0B 58 FF FF FF FF FF FF FF FF FF 01").form, Form::kLong);
  EXPECT_EQ(only_metric("12 05 65 00 00 C0 3F").form, Form::kFloat);
  EXPECT_EQ(only_metric("12 05 65 00 00 C0 3F").real, 1.5);
  EXPECT_EQ(only_metric("12 09 69 00 00 00 00 00 00 F8 3F").form, Form::kDouble);
  EXPECT_EQ(only_metric("12 09 69 00 00 00 00 00 00 F8 3F").real, 1.5);
  EXPECT_EQ(only_metric("12 02 70 00").form, Form::kBool);
  EXPECT_EQ(only_metric("12 02 70 00").number, 0U);
  EXPECT_EQ(only_metric("12 05 7A 03 C3 96 6C").form, Form::kString);
  EXPECT_EQ(only_metric("12 05 7A 03 C3 96 6C").text, "\xC3\x96l");
  EXPECT_EQ(only_metric("12 05 82 01 02 01 00").form, Form::kBytes);
  EXPECT_EQ(only_metric("12 05 82 01 02 01 00").text, std::string("\x01\x00", 2));
  EXPECT_EQ(only_metric("12 03 8A 01 00").form, Form::kOther);  // a data set
  EXPECT_EQ(only_metric("12 03 92 01 00").form, Form::kOther);  // a template
  EXPECT_EQ(only_metric("12 03 9A 01 00").form, Form::kOther);  // an extension
}

TEST(PayloadReader, ValueSetTwice_IsTheLastOne) {
  const CommandMetric metric = only_metric("12 07 7A 01 41 50 05 50 06");
  EXPECT_EQ(metric.form, Form::kInt);
  EXPECT_EQ(metric.number, 6U);
  EXPECT_EQ(metric.text, "");
}

TEST(PayloadReader, Null_IsTold) { EXPECT_TRUE(only_metric("12 04 38 01 50 05").is_null); }

TEST(PayloadReader, FieldsOfOthers_AreSkipped) {
  const auto message = read(
      "22 01 41 "                 // uuid
      "2A 02 00 00 "              // body
      "3A 01 00 40 05 "           // fields that extensions may have
      "12 06 42 02 08 01 50 05 "  // a metric with metadata
      "08 01");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->time, 1);
  ASSERT_EQ(message->metrics.size(), 1U);
  EXPECT_EQ(message->metrics[0].number, 5U);
}

TEST(PayloadReader, Empty_IsACommandOfNothing) {
  const auto message = read_command("");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->time, std::nullopt);
  EXPECT_TRUE(message->metrics.empty());
}

TEST(PayloadReader, BytesThatAreNoPayload_AreNone) {
  EXPECT_FALSE(read_command("{\"metrics\":[]}"));
  for (const char* hex : {"08", "12", "12 05 50 05", "12 FF FF FF FF 0F 50 05", "08 FF FF FF FF FF FF FF FF FF FF 01",
                          "0C", "00", "08 01 00", "12 02 50 85", "7F", "12 03 0A 01 FF"}) {
    EXPECT_FALSE(read(hex)) << hex;
  }
}

TEST(PayloadReader, TimeBeyondAllClocks_IsTheLastOne) {
  const auto message = read("08 FF FF FF FF FF FF FF FF FF 01");
  ASSERT_TRUE(message);
  EXPECT_EQ(message->time, std::numeric_limits<Ms>::max());
}

TEST(PayloadReader, MoreMetricsThanACommandHas_AreNone) {
  std::string payload;
  for (size_t i = 0; i < kMostCommandMetrics; ++i) payload += std::string("\x12\x00", 2);
  ASSERT_TRUE(read_command(payload));
  EXPECT_EQ(read_command(payload)->metrics.size(), 10000U);
  EXPECT_FALSE(read_command(payload + std::string("\x12\x00", 2)));
}

TEST(PayloadReader, NameThatNoVariableHas_IsNoCommand) {
  const std::string name(1000, 'x');
  EXPECT_TRUE(read_command(std::string("\x12\xEB\x07\x0A\xE8\x07", 6) + name));
  EXPECT_FALSE(read_command(std::string("\x12\xEC\x07\x0A\xE9\x07", 6) + name + "x"));
}

TEST(PayloadReader, MoreBytesThanACommandHas_AreNone) {
  std::string payload = std::string("\x2A\xFB\xFF\xFF\x01", 5);  // a body of the rest of 4 MiB
  payload.resize(size_t{4} << 20);
  EXPECT_TRUE(read_command(payload));
  EXPECT_FALSE(read_command(payload + std::string("\x08\x01", 2)));
}

TEST(HostState, OnlineAndOffline_AreRead) {
  const auto online = read_host_state(R"({"online": true, "timestamp": 1700000000000})");
  EXPECT_EQ(online.problem, "");
  EXPECT_TRUE(online.online);
  EXPECT_EQ(online.time, 1700000000000);
  const auto offline = read_host_state(R"({"timestamp":0,"online":false,"more":[1]})");
  EXPECT_EQ(offline.problem, "");
  EXPECT_FALSE(offline.online);
  EXPECT_EQ(offline.time, 0);
}

TEST(HostState, WhatIsNone_HasItsReason) {
  const auto refused = [](const std::vector<std::string>& texts, const std::string& reason) {
    for (const std::string& text : texts) EXPECT_EQ(read_host_state(text).problem, reason) << text;
  };
  refused({""}, "is empty, as after its retained message was deleted");
  refused({"ONLINE", "true", "[]", R"({"online": true, "timestamp": 5)", std::string(4096, '[')},
          "is not a JSON object");
  refused({"{}", R"({"timestamp": 5})"}, "has no online");
  refused({R"({"online": 1, "timestamp": 5})", R"({"online": "true", "timestamp": 5})"},
          "has an online that is neither true nor false");
  refused({R"({"online": true})"}, "has no timestamp");
  refused({R"({"online": true, "timestamp": -5})", R"({"online": true, "timestamp": 5.5})",
           R"({"online": true, "timestamp": "5"})", R"({"online": true, "timestamp": 9223372036854775808})"},
          "has a timestamp that is not a time in milliseconds");
  refused({std::string(4097, '[')}, "has 4097 bytes, more than 4096");
}

}  // namespace
}  // namespace plc_gateway::payload_reader_test
