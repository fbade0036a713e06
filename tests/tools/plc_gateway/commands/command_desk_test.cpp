// Tests of the decisions on commands: what is written, what is refused, and for what.
#include "tools/plc_gateway/commands/command_desk.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/tools/plc_gateway/commands/command_cases.h"

namespace plc_gateway::command_desk_test {
namespace {

TEST(CommandDesk, IntegersOfUpTo32Bits_ComeInEitherField) {
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), numbered(Form::kInt, 5)), "5i");
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), numbered(Form::kInt, 0xFFFFFFFE)), "-2i");
  EXPECT_EQ(decided(rule_of(DataType::kInt8, "SINT"), numbered(Form::kLong, ~uint64_t{0})), "-1i");
  EXPECT_EQ(decided(rule_of(DataType::kInt32, "DINT"), numbered(Form::kInt, 0x80000000)), "-2147483648i");
  EXPECT_EQ(decided(rule_of(DataType::kUInt32, "UDINT"), numbered(Form::kInt, 0xFFFFFFFF)), "4294967295u");
  EXPECT_EQ(decided(rule_of(DataType::kUInt8, "BYTE"), numbered(Form::kLong, 255)), "255u");
}

TEST(CommandDesk, IntegersOf64Bits_ComeInEitherField) {
  EXPECT_EQ(decided(rule_of(DataType::kInt64, "LINT"), numbered(Form::kLong, uint64_t{1} << 63)),
            "-9223372036854775808i");
  EXPECT_EQ(decided(rule_of(DataType::kInt64, "LINT"), numbered(Form::kInt, 0x7FFFFFFF)), "2147483647i");
  EXPECT_EQ(decided(rule_of(DataType::kUInt64, "ULINT"), numbered(Form::kLong, ~uint64_t{0})), "18446744073709551615u");
  EXPECT_EQ(decided(rule_of(DataType::kUInt64, "ULINT"), numbered(Form::kInt, 0xFFFFFFFF)), "4294967295u");
}

TEST(CommandDesk, NumberThatCouldMeanTwo_IsRefused) {
  EXPECT_EQ(decided(rule_of(DataType::kInt64, "LINT"), numbered(Form::kInt, 0x80000000)),
            "type: could be a negative number or one of 2147483648; send it as a number of 64 bits");
  EXPECT_EQ(decided(rule_of(DataType::kDouble, "LREAL"), numbered(Form::kInt, 0xFFFFFFFF)),
            "type: an integer that could be negative stands for no real number; send it as a real number");
  EXPECT_EQ(decided(rule_of(DataType::kDouble, "LREAL"), numbered(Form::kLong, uint64_t{1} << 63)),
            "type: an integer that could be negative stands for no real number; send it as a real number");
}

TEST(CommandDesk, NumberThatTheTypeDoesNotHold_IsOutOfRange) {
  EXPECT_EQ(decided(rule_of(DataType::kInt8, "SINT"), numbered(Form::kInt, 255)), "range: 255 is outside -128 to 127");
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), numbered(Form::kInt, 0xFFFF0000)),
            "range: -65536 is outside -32768 to 32767");
  EXPECT_EQ(decided(rule_of(DataType::kInt32, "DINT"), numbered(Form::kLong, 0xFFFFFFFF)),
            "range: 4294967295 is outside -2147483648 to 2147483647");
  EXPECT_EQ(decided(rule_of(DataType::kUInt16, "UINT"), numbered(Form::kInt, 65536)),
            "range: 65536 is outside 0 to 65535");
  EXPECT_EQ(decided(rule_of(DataType::kUInt32, "UDINT"), numbered(Form::kLong, ~uint64_t{0})),
            "range: 18446744073709551615 is outside 0 to 4294967295");
}

TEST(CommandDesk, Reals_ComeInAnyFormThatIsExact) {
  const CommandRule narrow = rule_of(DataType::kFloat, "REAL");
  const CommandRule wide = rule_of(DataType::kDouble, "LREAL");
  EXPECT_EQ(decided(narrow, real(Form::kFloat, static_cast<double>(0.1F))), "0.10000000149011612r");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, -1.5)), "-1.5r");
  EXPECT_EQ(decided(narrow, numbered(Form::kInt, 16777216)), "16777216r");
  EXPECT_EQ(decided(wide, real(Form::kDouble, 0.1)), "0.10000000000000001r");
  EXPECT_EQ(decided(wide, real(Form::kFloat, 0.5)), "0.5r");
  EXPECT_EQ(decided(wide, numbered(Form::kLong, uint64_t{1} << 53)), "9007199254740992r");
}

TEST(CommandDesk, RealThatWouldBeRounded_IsRefused) {
  const CommandRule narrow = rule_of(DataType::kFloat, "REAL");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, 0.1)),
            "type: a Float does not hold 0.10000000000000001 exactly; send it as a float");
  EXPECT_EQ(decided(narrow, numbered(Form::kInt, 16777217)),
            "type: a Float does not hold 16777217 exactly; send it as a real number, as it shall be");
  EXPECT_EQ(decided(rule_of(DataType::kDouble, "LREAL"), numbered(Form::kLong, (uint64_t{1} << 53) + 1)).substr(0, 4),
            "type");
  EXPECT_EQ(decided(rule_of(DataType::kDouble, "LREAL"), numbered(Form::kLong, (uint64_t{1} << 63) - 1)).substr(0, 4),
            "type");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, 1e39)), "range: 9.9999999999999994e+38 is more than a Float holds");
}

TEST(CommandDesk, RealNearerToZeroThanItsType_IsOutOfRangeAndNotZero) {
  const CommandRule narrow = rule_of(DataType::kFloat, "REAL");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, 1e-50)),
            "range: 1e-50 is nearer to zero than what a Float holds, and is not zero");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, -1e-50)).substr(0, 6), "range:");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, 0)), "0r");
  EXPECT_EQ(decided(narrow, real(Form::kDouble, static_cast<double>(std::numeric_limits<float>::denorm_min()))),
            "1.4012984643248171e-45r");
}

TEST(CommandDesk, WhatIsNoNumber_IsNeverWritten) {
  for (const double number : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    for (const Form form : {Form::kFloat, Form::kDouble}) {
      EXPECT_EQ(decided(rule_of(DataType::kFloat, "REAL"), real(form, number)).substr(0, 6), "range:");
      EXPECT_EQ(decided(rule_of(DataType::kDouble, "LREAL"), real(form, number)).substr(0, 6), "range:");
    }
  }
  EXPECT_EQ(decided(rule_of(DataType::kFloatArray, "REAL[0..1]", {2}),
                    with_bytes(Form::kBytes, std::string("\0\0\0\0\0\0\x80\x7F", 8))),
            "range: element 2: inf is not a number to write");
}

TEST(CommandDesk, Boolean_IsABooleanAlone) {
  const CommandRule rule = rule_of(DataType::kBoolean, "BOOL");
  EXPECT_EQ(decided(rule, numbered(Form::kBool, 1)), "true");
  EXPECT_EQ(decided(rule, numbered(Form::kBool, 0)), "false");
  EXPECT_EQ(decided(rule, numbered(Form::kInt, 1)), "type: an integer is not a value of the type Boolean (BOOL)");
}

TEST(CommandDesk, ValueOfAnotherKind_IsRefused) {
  const CommandRule rule = rule_of(DataType::kInt16, "INT");
  EXPECT_EQ(decided(rule, numbered(Form::kBool, 1)), "type: a Boolean is not a value of the type Int16 (INT)");
  EXPECT_EQ(decided(rule, real(Form::kFloat, 1)), "type: a real number is not a value of the type Int16 (INT)");
  EXPECT_EQ(decided(rule, with_bytes(Form::kString, "1")), "type: a text is not a value of the type Int16 (INT)");
  EXPECT_EQ(decided(rule, numbered(Form::kOther, 1)),
            "type: a value of another kind is not a value of the type Int16 (INT)");
  EXPECT_EQ(decided(rule_of(DataType::kString, "STRING(4)"), with_bytes(Form::kBytes, "ab")),
            "type: bytes is not a value of the type String (STRING(4))");
  EXPECT_EQ(decided(rule_of(DataType::kInt16Array, "INT[0..1]", {2}), numbered(Form::kInt, 1)),
            "type: an integer is not an array of the type Int16Array (INT[0..1])");
}

TEST(CommandDesk, TypesThatCannotBeWritten_AreRefused) {
  EXPECT_EQ(decided(rule_of(DataType::kBytes, "DATE"), with_bytes(Form::kBytes, "ab")),
            "type: no value of the type Bytes (DATE) can be written");
  EXPECT_EQ(decided(rule_of(DataType::kStringArray, "STRING(4)", {1}), with_bytes(Form::kBytes, std::string("a\0", 2))),
            "type: no value of the type StringArray (STRING(4)) can be written");
}

TEST(CommandDesk, Text_FitsItsBytes) {
  const CommandRule rule = rule_of(DataType::kString, "STRING(4)");
  EXPECT_EQ(decided(rule, with_bytes(Form::kString, "a\xC3\x96s")), "'a\xC3\x96s'");
  EXPECT_EQ(decided(rule, with_bytes(Form::kString, "")), "''");
  EXPECT_EQ(decided(rule, with_bytes(Form::kString, "abcde")), "range: the text has 5 bytes, at most 4 fit");
  EXPECT_EQ(decided(rule, with_bytes(Form::kString, "a\xFF")), "type: the text is not UTF-8");
  EXPECT_EQ(decided(rule, with_bytes(Form::kString, std::string("a\0b", 3))),
            "type: a zero byte ends a text and cannot stand in it");
  for (const char* declared : {"STRING", "STRING()", "STRING(x)", "STRING(4"}) {
    EXPECT_EQ(decided(rule_of(DataType::kString, declared), with_bytes(Form::kString, "a")),
              "range: the text has 1 byte, at most 0 fit")
        << declared;
  }
}

TEST(CommandDesk, Arrays_AreListsInTheirShape) {
  EXPECT_EQ(decided(rule_of(DataType::kInt16Array, "INT[0..1]", {2}),
                    with_bytes(Form::kBytes, std::string("\x01\x00\xFE\xFF", 4))),
            "[1i -2i ]");
  EXPECT_EQ(decided(rule_of(DataType::kUInt8Array, "USINT[0..1,0..2]", {2, 3}),
                    with_bytes(Form::kBytes, "\x01\x02\x03\x04\x05\x06")),
            "[[1u 2u 3u ] [4u 5u 6u ] ]");
  EXPECT_EQ(decided(rule_of(DataType::kBooleanArray, "BOOL[0..2]", {3}),
                    with_bytes(Form::kBytes, std::string("\x03\0\0\0\xA0", 5))),
            "[true false true ]");
}

TEST(CommandDesk, ArrayOfAnotherLength_IsRefused) {
  const CommandRule rule = rule_of(DataType::kInt16Array, "INT[0..1]", {2});
  EXPECT_EQ(decided(rule, with_bytes(Form::kBytes, "\x01\x02")),
            "type: 2 bytes are not an array of 2 elements of the type Int16Array (INT[0..1])");
  for (const size_t length : {0U, 3U, 5U, 6U}) {
    EXPECT_EQ(decided(rule, with_bytes(Form::kBytes, std::string(length, 'x'))).substr(0, 5), "type:") << length;
  }
}

TEST(CommandDesk, ElementsOfAnArray_AreHeldToTheRange) {
  const CommandRule rule = rule_of(DataType::kInt8Array, "SINT[0..2]", {3});
  EXPECT_EQ(decided_in_range(rule, -1, 5, with_bytes(Form::kBytes, "\xFF\x01\x05")), "[-1i 1i 5i ]");
  EXPECT_EQ(decided_in_range(rule, -1, 5, with_bytes(Form::kBytes, "\x01\x05\x06")),
            "range: element 3: 6 is above 5, the most that is allowed");
}

TEST(CommandDesk, DatatypeOfAnother_IsRefused) {
  CommandMetric metric = numbered(Form::kInt, 5);
  metric.datatype = 2;
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), metric), "5i");
  metric.datatype = 3;
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), metric),
            "type: the command says data type 3, the variable has 2, Int16 (INT)");
  CommandMetric text = with_bytes(Form::kString, "a");
  text.datatype = 14;
  EXPECT_EQ(decided(rule_of(DataType::kString, "STRING(4)"), text).substr(0, 5), "type:");
  CommandMetric array = with_bytes(Form::kBytes, "a");
  array.datatype = 26;
  EXPECT_EQ(decided(rule_of(DataType::kInt8Array, "SINT[0..0]", {1}), array).substr(0, 5), "type:");
}

TEST(CommandDesk, Range_IncludesItsEnds) {
  const CommandRule rule = rule_of(DataType::kInt16, "INT");
  EXPECT_EQ(decided_in_range(rule, -5, 3000, numbered(Form::kInt, 3000)), "3000i");
  EXPECT_EQ(decided_in_range(rule, -5, 3000, numbered(Form::kInt, 0xFFFFFFFB)), "-5i");
  EXPECT_EQ(decided_in_range(rule, -5, 3000, numbered(Form::kInt, 3001)),
            "range: 3001 is above 3000, the most that is allowed");
  EXPECT_EQ(decided_in_range(rule, -5, 3000, numbered(Form::kInt, 0xFFFFFFFA)),
            "range: -6 is below -5, the least that is allowed");
  EXPECT_EQ(decided_in_range(rule, 0.5, 1.5, numbered(Form::kInt, 1)), "1i");
  EXPECT_EQ(decided_in_range(rule, 0.5, 1.5, numbered(Form::kInt, 0)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(rule, 0.5, 1.5, numbered(Form::kInt, 2)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(rule, -1.5, -0.5, numbered(Form::kInt, 0xFFFFFFFE)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(rule, -1.5, -0.5, numbered(Form::kInt, 0)).substr(0, 6), "range:");
}

TEST(CommandDesk, RangeOf64Bits_IsExact) {
  const CommandRule narrow = rule_of(DataType::kInt64, "LINT");
  const CommandRule wide = rule_of(DataType::kUInt64, "ULINT");
  constexpr uint64_t kExact = uint64_t{1} << 53;
  EXPECT_EQ(decided_in_range(narrow, 0, 9007199254740992.0, numbered(Form::kLong, kExact)), "9007199254740992i");
  EXPECT_EQ(decided_in_range(narrow, 0, 9007199254740992.0, numbered(Form::kLong, kExact + 1)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(wide, 9007199254740992.0, 1e30, numbered(Form::kLong, kExact - 1)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(wide, 0, 18446744073709551616.0, numbered(Form::kLong, ~uint64_t{0})),
            "18446744073709551615u");
  EXPECT_EQ(decided_in_range(wide, 0, 18446744073709549568.0, numbered(Form::kLong, ~uint64_t{0})).substr(0, 6),
            "range:");
  EXPECT_EQ(decided_in_range(wide, -5, 10, numbered(Form::kLong, 10)), "10u");
  EXPECT_EQ(decided_in_range(wide, -10, -5, numbered(Form::kLong, 0)).substr(0, 6), "range:");
  EXPECT_EQ(
      decided_in_range(narrow, -9223372036854775808.0, 9223372036854775808.0, numbered(Form::kLong, uint64_t{1} << 63)),
      "-9223372036854775808i");
  EXPECT_EQ(decided_in_range(narrow, 9223372036854775808.0, 1e300, numbered(Form::kLong, kExact)).substr(0, 6),
            "range:");
  EXPECT_EQ(
      decided_in_range(narrow, -1e300, -9223372036854777856.0, numbered(Form::kLong, uint64_t{1} << 63)).substr(0, 6),
      "range:");
}

TEST(CommandDesk, LimitOfAReal_IsWhatTheRealCanHold) {
  const CommandRule rule = rule_of(DataType::kFloat, "REAL");
  const auto tenth = static_cast<double>(0.1F);
  EXPECT_EQ(decided_in_range(rule, 0, 0.1, real(Form::kFloat, tenth)), "0.10000000149011612r");
  EXPECT_EQ(
      decided_in_range(rule, 0, 0.1, real(Form::kFloat, static_cast<double>(std::nextafter(0.1F, 1.0F)))).substr(0, 6),
      "range:");
  EXPECT_EQ(decided_in_range(rule, -1e300, 1e300, real(Form::kFloat, 5)), "5r");
  const CommandRule wide = rule_of(DataType::kDouble, "LREAL");
  EXPECT_EQ(decided_in_range(wide, 0, 0.1, real(Form::kFloat, tenth)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(wide, 0, 0.1, real(Form::kDouble, 0.1)), "0.10000000000000001r");
}

TEST(CommandDesk, LimitThatIsNoNumber_AllowsNothing) {
  const CommandRule rule = rule_of(DataType::kInt16, "INT");
  EXPECT_EQ(decided_in_range(rule, std::nan(""), 5, numbered(Form::kInt, 1)).substr(0, 6), "range:");
  EXPECT_EQ(decided_in_range(rule, 0, std::nan(""), numbered(Form::kInt, 1)).substr(0, 6), "range:");
}

TEST(CommandDesk, Alias_NamesTheVariableOfTheBirths) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  CommandMetric metric = numbered(Form::kInt, 5);
  metric.name.clear();
  metric.alias = 7;
  EXPECT_EQ(shown(decide(desk, metric)), "5i");
  metric.alias = 8;
  const auto other = decide(desk, metric);
  EXPECT_EQ(shown(other), "not-listed: no [[command]] of the configuration allows it to be written");
  EXPECT_EQ(std::get<Refusal>(other).name, "Other");
  metric.alias = 9;
  const auto nobody = decide(desk, metric);
  EXPECT_EQ(shown(nobody).substr(0, 31), "not-listed: alias 9 is nobody's");
  EXPECT_EQ(std::get<Refusal>(nobody).name, "alias 9");
}

TEST(CommandDesk, NameAndAlias_MustAgree) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  CommandMetric metric = numbered(Form::kInt, 5);
  metric.alias = 7;
  EXPECT_EQ(shown(decide(desk, metric)), "5i");
  metric.alias = 8;
  EXPECT_EQ(shown(decide(desk, metric)), "malformed: alias 8 is another variable's; leave out the name or the alias");
  metric.alias = 9;
  EXPECT_EQ(shown(decide(desk, metric)).substr(0, 11), "not-listed:");
}

TEST(CommandDesk, WhatIsNotListed_IsRefused) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  CommandMetric metric = numbered(Form::kInt, 5);
  for (const char* name : {"v", "V ", "V[0]", "Node Control/Rebirth"}) {
    metric.name = name;
    const auto decision = decide(desk, metric);
    EXPECT_EQ(shown(decision).substr(0, 11), "not-listed:") << name;
    EXPECT_EQ(std::get<Refusal>(decision).name, name);
  }
  metric.name.clear();
  EXPECT_EQ(shown(decide(desk, metric)), "malformed: the command has neither a name nor an alias");
  CommandDesk empty;
  metric.name = "V";
  EXPECT_EQ(shown(decide(empty, metric)).substr(0, 11), "not-listed:");
}

TEST(CommandDesk, LongNameOfARefusal_IsCutBetweenCharacters) {
  CommandDesk desk;
  CommandMetric metric = numbered(Form::kInt, 5);
  metric.name = "x";
  for (int i = 0; i < 200; ++i) metric.name += "\xC3\x96";
  const auto decision = decide(desk, metric);
  EXPECT_EQ(std::get<Refusal>(decision).name, metric.name.substr(0, 199) + "...");
}

TEST(CommandDesk, Null_IsRefused) {
  CommandMetric metric = numbered(Form::kInt, 5);
  metric.is_null = true;
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), metric),
            "null: the command has no value; nothing is written for null");
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), numbered(Form::kNone, 0)).substr(0, 5), "null:");
}

TEST(CommandDesk, Retained_IsRefused) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  EXPECT_EQ(shown(decide(desk, numbered(Form::kInt, 5), kNow, 0, true)),
            "retained: a retained command comes again with every new connection; publish it without retain");
}

TEST(CommandDesk, Historical_IsRefused) {
  CommandMetric metric = numbered(Form::kInt, 5);
  metric.is_historical = true;
  EXPECT_EQ(decided(rule_of(DataType::kInt16, "INT"), metric),
            "old: it is marked as historical, and only a new command is carried out; send it without the mark");
}

TEST(CommandDesk, Age_IsThatOfTheMessageAndOfTheMetric) {
  CommandRule rule = rule_of(DataType::kInt16, "INT");
  rule.max_age_ms = 1000;
  CommandDesk desk({rule});
  CommandMetric metric = numbered(Form::kInt, 5);
  EXPECT_EQ(shown(decide(desk, metric, kNow + 1001)), "old: it is 1001 ms old; at most 1000 ms are allowed");
  EXPECT_EQ(shown(decide(desk, metric, kNow - 1001)),
            "old: its time is 1001 ms ahead of this clock; at most 1000 ms are allowed");
  metric.time = kNow - 1;
  EXPECT_EQ(shown(decide(desk, metric, kNow + 1000)), "old: it is 1001 ms old; at most 1000 ms are allowed");
  metric.time = kNow + 1;
  EXPECT_EQ(shown(decide(desk, metric, kNow + 1001)), "old: it is 1001 ms old; at most 1000 ms are allowed");
  EXPECT_EQ(shown(decide(desk, metric, kNow + 1001, 0, false, std::nullopt)), "5i");
  metric.time.reset();
  CommandDesk other({rule});
  EXPECT_EQ(shown(decide(other, metric, kNow + 1000)), "5i");
  EXPECT_EQ(shown(decide(desk, metric, kNow, 0, false, std::nullopt)),
            "old: it says no time, and nobody knows how old it is");
  metric.time = std::numeric_limits<Ms>::max();
  EXPECT_EQ(shown(decide(desk, metric)).substr(0, 4), "old:");
  EXPECT_EQ(shown(decide(desk, metric, std::numeric_limits<Ms>::min())).substr(0, 4), "old:");
}

TEST(CommandDesk, OlderThanTheNewestTaken_IsRefused) {
  CommandRule other = rule_of(DataType::kInt16, "INT");
  other.name = "W";
  CommandDesk desk({rule_of(DataType::kInt16, "INT"), other});
  CommandMetric metric = numbered(Form::kInt, 5);
  ASSERT_EQ(shown(decide(desk, metric, kNow, 0, false, kNow)), "5i");
  EXPECT_EQ(shown(decide(desk, metric, kNow, 0, false, kNow - 1)),
            "repeated: a command for it was taken that is 1 ms newer, and this one may have been carried out before: "
            "send a new one; when clocks were set back, it can be taken as soon as they are past that time");
  metric.name = "W";
  EXPECT_EQ(shown(decide(desk, metric, kNow, 0, false, kNow - 1)), "5i");
}

TEST(CommandDesk, SameTimeAgain_IsRepeated) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  CommandMetric metric = numbered(Form::kInt, 5);
  EXPECT_EQ(shown(decide(desk, metric)), "5i");
  EXPECT_EQ(shown(decide(desk, metric)), "repeated: a command for it with the same time was taken already");
  EXPECT_EQ(shown(decide(desk, metric, kNow, 1, false, kNow + 1)), "5i");
  EXPECT_EQ(shown(decide(desk, metric)).substr(0, 9), "repeated:");
  metric.time = kNow;
  EXPECT_EQ(shown(decide(desk, metric, kNow, 2, false, kNow + 2)).substr(0, 9), "repeated:");
  metric.time = kNow + 2;
  EXPECT_EQ(shown(decide(desk, metric)), "5i");
}

TEST(CommandDesk, ClockSetBack_MakesNoCommandANewOne) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  const CommandMetric metric = numbered(Form::kInt, 5);
  EXPECT_EQ(shown(decide(desk, metric)), "5i");
  EXPECT_EQ(shown(decide(desk, metric, kNow + 60000, 0, false, kNow + 60000)), "5i");
  EXPECT_EQ(shown(decide(desk, metric)).substr(0, 9), "repeated:");
}

TEST(CommandDesk, TimeNotBehindThatOfAnEarlierProcess_IsRepeated) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  desk.remembers({{"V", kNow}, {"W", kNow + 1}});
  const CommandMetric metric = numbered(Form::kInt, 5);
  EXPECT_EQ(shown(decide(desk, metric, kNow, 0, false, kNow - 3)),
            "repeated: a command for it was taken that is 3 ms newer, and this one may have been carried out before: "
            "send a new one; when clocks were set back, it can be taken as soon as they are past that time");
  EXPECT_EQ(shown(decide(desk, metric)).substr(0, 9), "repeated:");
  EXPECT_EQ(shown(decide(desk, metric, kNow, 0, false, kNow + 1)), "5i");
}

TEST(CommandDesk, SameVariableTwiceInOneMessage_IsTakenOnce) {
  CommandDesk desk({rule_of(DataType::kInt16, "INT")});
  const auto decisions = desk.decide({kNow, {numbered(Form::kInt, 1), numbered(Form::kInt, 2)}}, false, kNow, 0, {});
  ASSERT_EQ(decisions.size(), 2U);
  EXPECT_EQ(shown(decisions[0]), "1i");
  EXPECT_EQ(shown(decisions[1]).substr(0, 9), "repeated:");
}

TEST(CommandDesk, RefusedCommand_IsNoFirstOfARepeatedOne) {
  CommandRule rule = rule_of(DataType::kInt16, "INT");
  rule.every_ms = 100;
  rule.max = 10;
  CommandDesk desk({rule});
  EXPECT_EQ(shown(decide(desk, numbered(Form::kInt, 11))).substr(0, 6), "range:");
  EXPECT_EQ(shown(decide(desk, numbered(Form::kInt, 5))), "5i");
}

TEST(CommandDesk, Rate_IsOfAcceptedOnes) {
  CommandRule rule = rule_of(DataType::kInt16, "INT");
  rule.every_ms = 100;
  CommandDesk desk({rule});
  const CommandMetric metric = numbered(Form::kInt, 5);
  EXPECT_EQ(shown(decide(desk, metric, kNow, 1000, false, kNow)), "5i");
  EXPECT_EQ(shown(decide(desk, metric, kNow, 1099, false, kNow + 1)),
            "rate: the last one was taken 99 ms ago; one in 100 ms is allowed");
  EXPECT_EQ(shown(decide(desk, metric, kNow, 1100, false, kNow + 1)), "5i");
}

TEST(CommandDesk, RulesReadAgain_RememberWhatWasTaken) {
  CommandRule rule = rule_of(DataType::kInt16, "INT");
  CommandDesk desk({rule});
  EXPECT_EQ(shown(decide(desk, numbered(Form::kInt, 5))), "5i");
  CommandRule first = rule_of(DataType::kBoolean, "BOOL");
  first.name = "First";
  desk.replace_rules({first, rule});
  EXPECT_EQ(desk.rules().size(), 2U);
  EXPECT_EQ(shown(decide(desk, numbered(Form::kInt, 5))).substr(0, 9), "repeated:");
  const auto decision = decide(desk, numbered(Form::kInt, 6), kNow, 0, false, kNow + 1);
  EXPECT_EQ(shown(decision), "6i");
  EXPECT_EQ(std::get<WriteJob>(decision).rule, 1U);
}

// One command that would be refused for all of it; each cure shows the next reason.
TEST(CommandDesk, Reasons_ComeInTheirOrder) {
  CommandRule rule = rule_of(DataType::kInt16, "INT");
  rule.max = 10;
  rule.every_ms = 100;
  CommandDesk desk({rule});
  ASSERT_EQ(shown(decide(desk, numbered(Form::kInt, 1), kNow, 0, false, kNow)), "1i");
  CommandMetric metric = numbered(Form::kString, 11);
  metric.name = "W";
  metric.is_null = true;
  metric.datatype = 3;
  const auto kind = [&](bool retained, Ms sent) {
    return std::get<Refusal>(decide(desk, metric, kNow, 0, retained, sent)).kind;
  };
  EXPECT_EQ(kind(true, 0), "not-listed");
  metric.name = "V";
  EXPECT_EQ(kind(true, 0), "null");
  metric.is_null = false;
  EXPECT_EQ(kind(true, 0), "retained");
  EXPECT_EQ(kind(false, 0), "type");
  metric.form = Form::kInt;
  EXPECT_EQ(kind(false, 0), "type");
  metric.datatype.reset();
  EXPECT_EQ(kind(false, 0), "range");
  metric.number = 10;
  EXPECT_EQ(kind(false, 0), "old");
  EXPECT_EQ(kind(false, kNow), "repeated");
  EXPECT_EQ(kind(false, kNow + 1), "rate");
}

}  // namespace
}  // namespace plc_gateway::command_desk_test
