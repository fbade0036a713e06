// Tests of the text that a result has for the value of its command.
#include "tools/plc_gateway/commands/command_text.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/tools/plc_gateway/commands/command_cases.h"

namespace {

using plc_gateway::CommandMetric;
using plc_gateway::DataType;
using plc_gateway::shortened;
using plc_gateway::value_text;
using plc_gateway::command_desk_test::numbered;
using plc_gateway::command_desk_test::real;
using plc_gateway::command_desk_test::with_bytes;
using Form = CommandMetric::Form;

TEST(CommandText, Integer_HasTheSignOfItsType) {
  CommandMetric metric = numbered(Form::kInt, 0xFFFFFFFF);
  EXPECT_EQ(value_text(metric, std::nullopt), "4294967295");
  EXPECT_EQ(value_text(metric, DataType::kUInt32), "4294967295");
  EXPECT_EQ(value_text(metric, DataType::kInt16), "-1");
  metric.datatype = 3;
  EXPECT_EQ(value_text(metric, DataType::kUInt32), "-1");
  metric.datatype = 0x100 + 3;  // no type
  EXPECT_EQ(value_text(metric, DataType::kUInt32), "4294967295");
  EXPECT_EQ(value_text(numbered(Form::kLong, 1ULL << 63), DataType::kInt64), "-9223372036854775808");
  EXPECT_EQ(value_text(numbered(Form::kLong, 1ULL << 63), DataType::kUInt64), "9223372036854775808");
}

TEST(CommandText, RealAndBooleanAndText_AreAsTheyCame) {
  EXPECT_EQ(value_text(real(Form::kFloat, static_cast<double>(0.1F)), std::nullopt), "0.1");
  EXPECT_EQ(value_text(real(Form::kDouble, 7.5), DataType::kFloat), "7.5");
  EXPECT_EQ(value_text(real(Form::kDouble, std::numeric_limits<double>::infinity()), std::nullopt), "inf");
  EXPECT_EQ(value_text(numbered(Form::kBool, 1), std::nullopt), "true");
  EXPECT_EQ(value_text(with_bytes(Form::kString, "a b"), std::nullopt), "a b");
}

TEST(CommandText, Array_IsAListAndOtherBytesAreTheirNumber) {
  EXPECT_EQ(value_text(with_bytes(Form::kBytes, std::string("\1\0\xFF\xFF", 4)), DataType::kInt16Array), "[1,-1]");
  EXPECT_EQ(value_text(with_bytes(Form::kBytes, std::string("\1\0\xFF", 3)), DataType::kInt16Array), "3 bytes");
  EXPECT_EQ(value_text(with_bytes(Form::kBytes, "x"), DataType::kStringArray), "1 byte");
}

TEST(CommandText, CommandWithoutAValue_HasNone) {
  CommandMetric metric = numbered(Form::kInt, 1);
  metric.is_null = true;
  EXPECT_EQ(value_text(metric, std::nullopt), std::nullopt);
  EXPECT_EQ(value_text(numbered(Form::kNone, 0), std::nullopt), std::nullopt);
  EXPECT_EQ(value_text(numbered(Form::kOther, 0), std::nullopt), std::nullopt);
}

TEST(CommandText, LongText_EndsBetweenTwoCharacters) {
  EXPECT_EQ(value_text(with_bytes(Form::kString, std::string(200, 'x')), std::nullopt), std::string(200, 'x'));
  EXPECT_EQ(shortened(std::string(199, 'x') + "\xC3\xA4"), std::string(199, 'x') + "...");
  const std::string list = value_text(with_bytes(Form::kBytes, std::string(1000, '\1')), DataType::kUInt8Array).value();
  EXPECT_EQ(list.size(), 203U);
  EXPECT_EQ(list.substr(197), "1,1...");
}

}  // namespace
