// Tests of the strict decoder: the first and the last character of each length, and what is none.
#include "base/utf8.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

namespace plc_base {
namespace {

void expect_character(std::string_view text, char32_t value) {
  const auto first = first_code_point(std::string(text) + "x");
  ASSERT_TRUE(first.has_value()) << "U+" << std::hex << static_cast<uint32_t>(value);
  EXPECT_EQ(static_cast<uint32_t>(first->value), static_cast<uint32_t>(value));
  EXPECT_EQ(first->bytes, text.size());
}

TEST(Utf8, FirstAndLastOfEachLength_AreDecoded) {
  expect_character(std::string_view("\0", 1), 0);
  expect_character("\x7F", 0x7F);
  expect_character("\xC2\x80", 0x80);
  expect_character("\xDF\xBF", 0x7FF);
  expect_character("\xE0\xA0\x80", 0x800);
  expect_character("\xEF\xBF\xBF", 0xFFFF);
  expect_character("\xF0\x90\x80\x80", 0x10000);
  expect_character("\xF4\x8F\xBF\xBF", 0x10FFFF);
}

TEST(Utf8, AroundSurrogates_AreDecoded) {
  expect_character("\xED\x9F\xBF", 0xD7FF);
  expect_character("\xEE\x80\x80", 0xE000);
}

TEST(Utf8, Malformed_IsNoCharacter) {
  const char* const malformed[] = {
      "\x80",              // no lead
      "\xC1\xBF",          // longer than needed
      "\xE0\x9F\xBF",      // longer than needed
      "\xF0\x8F\xBF\xBF",  // longer than needed
      "\xED\xA0\x80",      // the first half of a surrogate pair
      "\xED\xBF\xBF",      // the last half of one
      "\xF4\x90\x80\x80",  // beyond the last code point
      "\xF5\x80\x80\x80",  // no lead
      "\xFF",              // no lead
      "\xC3",              // cut
      "\xE4\xB8",          // cut
      "\xF0\x9F\x98",      // cut
      "\xC3x",             // broken off
      "\xE4\xB8x",         // broken off
      "\xF0\x9F\x98\xC0",  // broken off
  };
  for (const char* text : malformed) {
    EXPECT_FALSE(first_code_point(text).has_value()) << testing::PrintToString(text);
    EXPECT_FALSE(is_utf8(std::string("a") + text)) << testing::PrintToString(text);
  }
}

TEST(Utf8, CharacterThatGoesOnBehindTheText_IsNone) {
  const std::string_view whole = "\xF0\x9F\x98\x80";
  for (size_t bytes = 1; bytes < whole.size(); ++bytes) {
    EXPECT_FALSE(first_code_point(whole.substr(0, bytes)).has_value()) << bytes;
    EXPECT_FALSE(is_utf8(whole.substr(0, bytes))) << bytes;
  }
}

TEST(Utf8, NoText_HasNoCharacterAndIsWellFormed) {
  EXPECT_FALSE(first_code_point("").has_value());
  EXPECT_TRUE(is_utf8(""));
}

TEST(Utf8, EachLengthInOneText_IsWellFormed) { EXPECT_TRUE(is_utf8("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80")); }

TEST(WholeCharacters, TextThatFits_IsKept) {
  EXPECT_EQ(whole_characters("", 0), "");
  EXPECT_EQ(whole_characters("\xC3\xA9", 2), "\xC3\xA9");
  EXPECT_EQ(whole_characters("ab", 300), "ab");
}

TEST(WholeCharacters, CutNeverPartsACharacter) {
  const std::string text = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80z";  // of 1, 2, 3, 4 and 1 bytes
  const size_t kept_of_most[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 11};
  for (size_t most = 0; most < std::size(kept_of_most); ++most) {
    EXPECT_EQ(whole_characters(text, most), text.substr(0, kept_of_most[most])) << most;
  }
}

TEST(WholeCharacters, BytesOfNoCharacter_ArePartedAnywhere) {
  EXPECT_EQ(whole_characters(std::string(9, '\x80'), 5), std::string(5, '\x80'));
  EXPECT_EQ(whole_characters("\xF0\x9F\x98x", 2), "\xF0\x9F");
  EXPECT_EQ(whole_characters("ab\x80\x80", 3), "ab\x80");
}

TEST(Blanks, OfEveryScript_AreTakenFromBothEnds) {
  const std::string blanks[] = {" ",      "\t",     "\r",     "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002",
                                "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008", "\u2009", "\u200A",
                                "\u200B", "\u202F", "\u205F", "\u2060", "\u3000", "\uFEFF"};
  std::string all;
  for (const std::string& blank : blanks) {
    EXPECT_EQ(without_blanks(blank), "");
    EXPECT_EQ(without_blanks(blank + "a" + blank + "b" + blank), "a" + blank + "b");
    all += blank;
  }
  EXPECT_EQ(without_blanks(all + "x" + all), "x");
  EXPECT_EQ(without_blanks(all), "");
}

TEST(Blanks, WhatIsNone_Stays) {
  EXPECT_EQ(without_blanks(""), "");
  for (const std::string text : {"a", "\n", "\v", "\f", "\xC3\xA9", "\x80", "\xA0", "\xC2", "\u180E", "\xE3\x80"}) {
    EXPECT_EQ(without_blanks(text), text);
  }
}

TEST(Blanks, OfOneByte_AreNotUnusual) {
  for (const char* text : {"", " ", "\t", "\r", "a", "\u00A0 "}) EXPECT_FALSE(is_unusual_blank(text)) << text;
  for (const char* text : {"\u00A0", "\u2009", "\u200B", "\uFEFF"}) EXPECT_TRUE(is_unusual_blank(text)) << text;
}

}  // namespace
}  // namespace plc_base
