// Tests of values as text, both ways.
#include "client/values/value_text.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "client/values/value_type.h"
#include "tests/client/host_test_records.h"
#include "tests/support/typed_values.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

std::string round_trip(const TagEntry& entry, const std::string& text) {
  return format_element(entry, parse_element(entry, text));
}

TEST(ValueText, Integers_ShowTheirSign) {
  EXPECT_EQ(format_element(make_entry("a", kInt), 0xFFFF), "-1");
  EXPECT_EQ(format_element(make_entry("a", kUint), 0xFFFF), "65535");
  EXPECT_EQ(format_element(make_entry("a", kDint), 0x80000000U), "-2147483648");
  EXPECT_EQ(format_element(make_entry("a", kLint), 0x8000000000000000U), "-9223372036854775808");
  EXPECT_EQ(format_element(make_entry("a", kUlint), 0xFFFFFFFFFFFFFFFFU), "18446744073709551615");
  EXPECT_EQ(format_element(make_entry("a", kWord), 0x0AFE), "0x0AFE");
}

TEST(ValueText, Reals_ShowTheShortestTextThatGivesThemBack) {
  EXPECT_EQ(round_trip(make_entry("a", kReal), "0.1"), "0.1");
  EXPECT_EQ(round_trip(make_entry("a", kLreal), "0.1"), "0.1");
  EXPECT_EQ(round_trip(make_entry("a", kReal), "-1.5e3"), "-1500");
  EXPECT_EQ(round_trip(make_entry("a", kReal), "nan"), "nan");
  EXPECT_EQ(round_trip(make_entry("a", kReal), "-inf"), "-inf");
}

TEST(ValueText, RealInJson_HasTheDigitsOfItsOwnWidth) {
  const TagEntry entry = make_entry("a", kReal);
  EXPECT_EQ(element_json(entry, parse_element(entry, "0.1")).dump(), "0.1");
}

TEST(ValueText, NegativeZeroInJson_KeepsItsSign) {
  for (const TypeOf type : {kReal, kLreal}) {
    const TagEntry entry = make_entry("a", type);
    EXPECT_EQ(element_json(entry, parse_element(entry, "-0.0")).dump(), "-0.0");
  }
}

TEST(ValueText, WhatJsonCannotSay_IsNull) {
  EXPECT_EQ(element_json(make_entry("a", kReal), parse_element(make_entry("a", kReal), "nan")).dump(), "null");
  EXPECT_EQ(element_json(make_entry("a", kLreal), parse_element(make_entry("a", kLreal), "-inf")).dump(), "null");
  EXPECT_EQ(value_json(make_string("s", 8), {{}, "\xFF"}, {}).dump(), "null");
  EXPECT_EQ(value_json(make_entry("d", kDate), {}, {}).dump(), "null");
}

TEST(ValueText, WideIntegersInJson_AreTextsWhereThatIsAskedFor) {
  const auto texts = [](const TagEntry& entry, uint64_t bits) {
    return element_json(entry, bits, plc_client::core::WideIntegers::kTexts).dump();
  };
  EXPECT_EQ(element_json(make_entry("a", kLint), UINT64_MAX).dump(), "-1");
  EXPECT_EQ(texts(make_entry("a", kLint), UINT64_MAX), "\"-1\"");
  EXPECT_EQ(texts(make_entry("a", kUlint), UINT64_MAX), "\"18446744073709551615\"");
  EXPECT_EQ(texts(make_entry("a", kLword), UINT64_MAX), "\"18446744073709551615\"");
  EXPECT_EQ(texts(make_entry("a", kDint), 7), "7");
  EXPECT_EQ(texts(make_entry("a", kLreal), 0), "0.0");
}

TEST(ValueText, IntegerRange_EndsAreAcceptedAndBeyondRefused) {
  const TagEntry entry = make_entry("a", kInt);
  EXPECT_EQ(parse_element(entry, "-32768"), 0x8000U);
  EXPECT_EQ(parse_element(entry, "32767"), 0x7FFFU);
  EXPECT_THROW(parse_element(entry, "32768"), ValueError);
  EXPECT_THROW(parse_element(entry, "-32769"), ValueError);
  EXPECT_EQ(parse_element(make_entry("a", kUlint), "18446744073709551615"), 0xFFFFFFFFFFFFFFFFU);
  EXPECT_THROW(parse_element(make_entry("a", kUlint), "18446744073709551616"), ValueError);
  EXPECT_THROW(parse_element(make_entry("a", kUint), "-1"), ValueError);
}

TEST(ValueText, Patterns_AreBitsOfTheTypesWidth) {
  EXPECT_EQ(parse_element(make_entry("a", kInt), "0xFFFF"), 0xFFFFU);
  EXPECT_THROW(parse_element(make_entry("a", kInt), "0x10000"), ValueError);
  EXPECT_EQ(parse_element(make_entry("a", kWord), "0b101"), 5U);
  EXPECT_THROW(parse_element(make_entry("a", kWord), "0b102"), ValueError);
  EXPECT_THROW(parse_element(make_entry("a", kWord), "0x"), ValueError);
}

TEST(ValueText, TextThatIsNoNumber_IsRefused) {
  for (const char* text : {"", "abc", "12x", "1.5", "--1", "+-1", " "}) {
    EXPECT_THROW(parse_element(make_entry("a", kDint), text), ValueError) << text;
  }
  EXPECT_EQ(parse_element(make_entry("a", kDint), " +12 "), 12U);
}

TEST(ValueText, RealBeyondItsType_IsRefused) {
  EXPECT_THROW(parse_element(make_entry("a", kReal), "1e39"), ValueError);
  EXPECT_THROW(parse_element(make_entry("a", kReal), "1.5.2"), ValueError);
  EXPECT_NO_THROW(parse_element(make_entry("a", kLreal), "1e39"));
}

TEST(ValueText, Bool_TakesWordsAndDigits) {
  const TagEntry entry = make_entry("a", kBool);
  for (const char* text : {"true", "TRUE", "on", "1"}) EXPECT_EQ(parse_element(entry, text), 1U) << text;
  for (const char* text : {"false", "FALSE", "off", "0"}) EXPECT_EQ(parse_element(entry, text), 0U) << text;
  EXPECT_THROW(parse_element(entry, "2"), ValueError);
  EXPECT_EQ(format_element(entry, 1), "true");
}

TypeOf type_called(const std::string& name) {
  constexpr std::pair<const char*, uint8_t> kWidths[] = {
      {"BOOL", 1},   {"SINT", 8},  {"USINT", 8},  {"INT", 16},  {"UINT", 16},  {"WORD", 16}, {"DINT", 32},
      {"UDINT", 32}, {"REAL", 32}, {"DWORD", 32}, {"LINT", 64}, {"ULINT", 64}, {"LREAL", 64}};
  for (const auto& [known, width] : kWidths) {
    for (uint16_t code = kTypeBool; known == name && code < 0xD8; ++code) {
      if (type_name(code) == name) return {code, width};
    }
  }
  ADD_FAILURE() << "no width is known of " << name;
  return kDate;
}

// The problem where there is one, else nothing.
template <typename Call>
std::string problem_of(const Call& call) {
  try {
    call();
  } catch (const ValueError& error) {
    return error.what();
  }
  return {};
}

// The same table as for plc-sim's console.
TEST(ValueText, SpellingsOfTheTable_AreTakenAsItSays) {
  for (const plc_test::TypedValue& typed : plc_test::kTypedValues) {
    const TagEntry entry = make_entry("a", type_called(typed.type));
    uint64_t bits = 0;
    EXPECT_EQ(problem_of([&] { bits = parse_element(entry, typed.text); }), typed.problem) << typed.text;
    EXPECT_EQ(bits, typed.bits) << typed.type << " " << typed.text;
  }
  for (const plc_test::TypedString& typed : plc_test::kTypedStrings) {
    std::string bytes;
    EXPECT_EQ(problem_of([&] { bytes = parse_value(make_string("s", 8), typed.text, {}).text; }), typed.problem);
    EXPECT_EQ(bytes, typed.bytes) << typed.text;
  }
}

TEST(ValueText, List_NestsByTheExtents) {
  const TagEntry entry = make_entry("a", kInt, {{0, 1}, {0, 2}});
  const TagValue value = parse_value(entry, "[[1, 2, 3], [4, 5, 6]]", {2, 3});
  EXPECT_EQ(value.elements, (std::vector<uint64_t>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(format_value(entry, value, {2, 3}), "[[1, 2, 3], [4, 5, 6]]");
  EXPECT_EQ(value_json(entry, value, {2, 3}).dump(), "[[1,2,3],[4,5,6]]");
}

TEST(ValueText, FlatList_FillsTheElementsInTheirOrder) {
  const TagEntry entry = make_entry("a", kInt, {{0, 1}, {0, 2}});
  EXPECT_EQ(parse_value(entry, "[1,2,3,4,5,6]", {2, 3}).elements, (std::vector<uint64_t>{1, 2, 3, 4, 5, 6}));
}

TEST(ValueText, ListOfAnotherLength_IsRefused) {
  const TagEntry entry = make_entry("a", kInt, {{0, 1}, {0, 2}});
  for (const char* text : {"[1,2,3]", "[[1,2],[3,4],[5,6]]", "[[1,2,3],4]", "1", "[]", "[[1,2,3],[4,5]]",
                           "[1,2,3,4,5,]", "[[1,2,3],[4,5,6]", "[1]]"}) {
    EXPECT_THROW(parse_value(entry, text, {2, 3}), ValueError) << text;
  }
  EXPECT_THROW(parse_value(make_entry("b", kInt), "[1]", {}), ValueError);
}

TEST(ValueText, PlainText_StandsAsItIs) {
  const TagEntry entry = make_string("s", 8);
  EXPECT_EQ(parse_value(entry, "pump 3", {}).text, "pump 3");
  EXPECT_EQ(parse_value(entry, "", {}).text, "");
  EXPECT_EQ(parse_value(entry, "\"a\\x41\\n\\\"\\\\\"", {}).text, "aA\n\"\\");
}

TEST(ValueText, TextThatDoesNotFit_IsRefused) {
  const TagEntry entry = make_string("s", 4);
  EXPECT_NO_THROW(parse_value(entry, "1234", {}));
  EXPECT_THROW(parse_value(entry, "12345", {}), ValueError);
  EXPECT_THROW(parse_value(entry, "\"\\x00\"", {}), ValueError);
  EXPECT_THROW(parse_value(entry, "\"\\q\"", {}), ValueError);
  EXPECT_THROW(parse_value(entry, "\"\\x4\"", {}), ValueError);
}

TEST(ValueText, QuotedText_EscapesWhatATerminalWouldObey) {
  EXPECT_EQ(quote_text("a\"b\\\x1B[m\n"), "\"a\\\"b\\\\\\x1B[m\\n\"");
  EXPECT_EQ(quote_text("\xC2\x9B\xE2\x80\xAE"), "\"\\xC2\\x9B\\xE2\\x80\\xAE\"");
  EXPECT_EQ(quote_text("\xE4\xB8\xAD\xFF"), "\"\xE4\xB8\xAD\\xFF\"");
}

TEST(ValueText, StringInJson_IsText) {
  const TagEntry entry = make_string("s", 8);
  EXPECT_EQ(value_json(entry, {{}, "abc"}, {}).dump(), "\"abc\"");
}

TEST(ValueText, RawType_ShowsItsBytesAndTakesNone) {
  const TagEntry entry = make_entry("d", kDate);
  EXPECT_EQ(format_value(entry, {{}, "\x12\xAB"}, {}), "12 AB");
  EXPECT_EQ(format_value(entry, {}, {}), "(no bytes)");
  EXPECT_THROW(parse_value(entry, "1", {}), ValueError);
}

TEST(ValueText, DeclaredType_ShowsRangesAndLength) {
  EXPECT_EQ(declared_type(make_entry("a", kInt)), "INT");
  EXPECT_EQ(declared_type(make_entry("a", kInt, {{0, 9}, {1, 4}})), "INT[0..9,1..4]");
  EXPECT_EQ(declared_type(make_string("s", 20)), "STRING(20)");
}

TEST(ValueText, StringWithoutLength_IsRaw) {
  EXPECT_EQ(value_kind(make_entry("s", kString)), ValueKind::kRaw);
  EXPECT_EQ(value_kind(make_string("s", 4)), ValueKind::kText);
}

TEST(ValueText, ElementNumber_IsTheValueForACurve) {
  EXPECT_EQ(element_number(make_entry("a", kInt), 0xFFFF), -1.0);
  EXPECT_EQ(element_number(make_entry("a", kBool), 1), 1.0);
  EXPECT_EQ(element_number(make_entry("a", kReal), 0x3FC00000), 1.5);
}

}  // namespace
}  // namespace plc_client::core
