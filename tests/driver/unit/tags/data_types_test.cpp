// Tests of the data type table and its look-ups.
#include "plc_driver/tags/data_types.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "tests/support/captured_output.h"

namespace {

using plc_test::capture_output;

constexpr const char* kUnknownLine = "don't find this type id";

struct Row {
  const char* name;
  uint32_t bits;
  uint32_t code;
};

constexpr Row kRows[] = {
    {"BOOL", 1, 0xC1},          {"SINT", 8, 0xC2},   {"INT", 16, 0xC3},    {"DINT", 32, 0xC4},
    {"LINT", 64, 0xC5},         {"USINT", 8, 0xC6},  {"UINT", 16, 0xC7},   {"UDINT", 32, 0xC8},
    {"ULINT", 64, 0xC9},        {"REAL", 32, 0xCA},  {"LREAL", 64, 0xCB},  {"STIME", 0, 0xCC},
    {"DATE", 0, 0xCD},          {"STRING", 0, 0xD0}, {"BYTE", 8, 0xD1},    {"WORD", 16, 0xD2},
    {"DWORD", 32, 0xD3},        {"LWORD", 64, 0xD4}, {"STRING2", 0, 0xD5}, {"TIME_OF_DAY", 0, 0xCE},
    {"DATE_AND_TIME", 0, 0xCF}, {"", 0, 0xFFFF}};

TEST(TypeList, Rows_StandInTheirOrderWhichIsNotThatOfTheCodes_D3) {
  ASSERT_EQ(std::size(kRows), std::size(type_list));
  for (size_t i = 0; i < std::size(kRows); ++i) {
    EXPECT_STREQ(type_list[i].name, kRows[i].name) << i;
    EXPECT_EQ(type_list[i].bits, kRows[i].bits) << i;
    EXPECT_EQ(type_list[i].code, kRows[i].code) << i;
  }
  EXPECT_EQ(type_list[19].code, 0xCE);
}

TEST(Type2Str, EveryKnownCode_GivesItsNameWithoutAWord) {
  for (size_t i = 0; i + 1 < std::size(kRows); ++i) {
    std::string name;
    EXPECT_EQ(capture_output([&] { name = type2str(kRows[i].code); }), "");
    EXPECT_EQ(name, kRows[i].name);
  }
  EXPECT_STREQ(type2str(0xC1), "BOOL");
  EXPECT_STREQ(type2str(0xCE), "TIME_OF_DAY");
  EXPECT_STREQ(type2str(0xCF), "DATE_AND_TIME");
}

TEST(Type2Str, UnknownCode_PrintsAndGivesNull) {
  for (const uint32_t code : {0xFFFFU, 0xC0U, 0xD6U, 0U, 0x1C1U, 0x100C1U, 0xFFFFFFFFU}) {
    const char* name = "";
    EXPECT_EQ(capture_output([&] { name = type2str(code); }), kUnknownLine) << code;
    EXPECT_EQ(name, nullptr) << code;
  }
}

TEST(Type2Str, NextCall_OverwritesTheName) {
  const char* first = type2str(0xCF);
  ASSERT_STREQ(first, "DATE_AND_TIME");
  EXPECT_EQ(type2str(0xC3), first);
  EXPECT_STREQ(first, "INT");
}

TEST(Type2Str, UnknownCode_ClearsTheName) {
  const char* name = type2str(0xC3);
  EXPECT_EQ(capture_output([] { type2str(0xC0); }), kUnknownLine);
  EXPECT_STREQ(name, "");
}

TEST(Type2Bits, EveryKnownCode_GivesItsWidthWithoutAWord) {
  for (size_t i = 0; i + 1 < std::size(kRows); ++i) {
    uint32_t bits = 99;
    EXPECT_EQ(capture_output([&] { bits = type2bits(kRows[i].code); }), "");
    EXPECT_EQ(bits, kRows[i].bits) << kRows[i].name;
  }
  EXPECT_EQ(type2bits(0xD0), 0U);
  EXPECT_EQ(type2bits(0xC5), 64U);
}

TEST(Type2Bits, UnknownCode_PrintsAndGivesZero) {
  for (const uint32_t code : {0xFFFFU, 0xC0U, 0x1C1U}) {
    uint32_t bits = 99;
    EXPECT_EQ(capture_output([&] { bits = type2bits(code); }), kUnknownLine) << code;
    EXPECT_EQ(bits, 0U) << code;
  }
}

TEST(Type2Bits, AnyCall_ClearsTheNameOfType2Str_D4) {
  const char* name = type2str(0xC3);
  ASSERT_STREQ(name, "INT");
  type2bits(0xC4);
  EXPECT_STREQ(name, "");
}

TEST(KeyenceGettype, Width_GivesTheSizeCode) {
  EXPECT_EQ(keyence_gettype(1, 7), 1);
  EXPECT_EQ(keyence_gettype(16, 7), 1);
  EXPECT_EQ(keyence_gettype(32, 7), 2);
  EXPECT_EQ(keyence_gettype(64, 7), 4);
}

TEST(KeyenceGettype, WidthZero_GivesTheFallback) {
  EXPECT_EQ(keyence_gettype(0, 7), 7);
  EXPECT_EQ(keyence_gettype(0, -1), -1);
}

TEST(KeyenceGettype, OtherWidth_ComesBackUnchanged) {
  EXPECT_EQ(keyence_gettype(8, 7), 8);
  EXPECT_EQ(keyence_gettype(-3, 7), -3);
}

TEST(KeyenceGetnum, Bytes_AreDividedTowardZero) {
  EXPECT_EQ(keyence_getnum(1, 5), 5);
  EXPECT_EQ(keyence_getnum(8, 5), 5);
  EXPECT_EQ(keyence_getnum(16, -3), -1);
  EXPECT_EQ(keyence_getnum(16, 7), 3);
  EXPECT_EQ(keyence_getnum(32, 11), 2);
  EXPECT_EQ(keyence_getnum(32, -5), -1);
  EXPECT_EQ(keyence_getnum(64, 17), 2);
}

TEST(KeyenceGetnum, WidthZero_GivesOne) { EXPECT_EQ(keyence_getnum(0, 99), 1); }

TEST(KeyenceGetnum, OtherWidth_ComesBackUnchanged) { EXPECT_EQ(keyence_getnum(12, 5), 12); }

TEST(PowersOfTen, Pair_StandsBesideTheTable) {
  EXPECT_EQ(pow_val[0], 1U);
  EXPECT_EQ(pow_val[1], 10U);
}

TEST(FindType, ExactName_GivesTheRow) {
  EXPECT_EQ(plc::find_type("DINT", 4), &type_list[3]);
  EXPECT_EQ(plc::find_type("STRING2,more", 7), &type_list[18]);
  EXPECT_EQ(plc::find_type("STRING2", 6), &type_list[13]);
  EXPECT_EQ(plc::find_type("", 0), &type_list[21]);
}

TEST(FindType, OtherText_GivesNull) {
  EXPECT_EQ(plc::find_type("dint", 4), nullptr);
  EXPECT_EQ(plc::find_type("DINTS", 5), nullptr);
  EXPECT_EQ(plc::find_type("DIN", 3), nullptr);
  EXPECT_EQ(plc::find_type(" INT", 4), nullptr);
  const std::string longest(99, 'X');
  EXPECT_EQ(plc::find_type(longest.data(), 99), nullptr);
}

}  // namespace
