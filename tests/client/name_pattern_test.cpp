// Tests of patterns of names.
#include "client/tags/name_pattern.h"

#include <gtest/gtest.h>

#include <clocale>
#include <string>

namespace plc_client::core {
namespace {

using namespace std::string_view_literals;

TEST(NamePattern, PatternWithoutSigns_IsAName) {
  EXPECT_TRUE(fits_pattern("Motor.Speed", "Motor.Speed"));
  EXPECT_FALSE(fits_pattern("Motor.Speed", "Motor.Speeds"));
  EXPECT_FALSE(fits_pattern("Motor.Speed", "Motor.Spee"));
  EXPECT_TRUE(fits_pattern("", ""));
  EXPECT_FALSE(fits_pattern("", "M"));
  EXPECT_TRUE(fits_pattern("a\\b", "a\\b"));
}

TEST(NamePattern, Stars_AreAnyCharactersAndNone) {
  EXPECT_TRUE(fits_pattern("*", ""));
  EXPECT_TRUE(fits_pattern("*", "Motor.Speed"));
  EXPECT_TRUE(fits_pattern("M*r.*d", "Motor.Speed"));
  EXPECT_TRUE(fits_pattern("**Speed**", "Speed"));
  EXPECT_TRUE(fits_pattern("*ab", "aab"));
  EXPECT_FALSE(fits_pattern("*ab*", "ba"));
}

TEST(NamePattern, QuestionMark_IsOneCharacterInEveryLocale) {
  for (const char* locale : {"C", "C.UTF-8"}) {
    ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr);
    EXPECT_TRUE(
        fits_pattern("Gr?\xC3\x9F"
                     "e",
                     "Gr\xC3\xB6\xC3\x9F"
                     "e"))
        << locale;
    EXPECT_TRUE(fits_pattern("Gr[\xC3\xB6-\xC3\xBC]?e",
                             "Gr\xC3\xB6\xC3\x9F"
                             "e"))
        << locale;
    EXPECT_FALSE(fits_pattern("?", "ab")) << locale;
    EXPECT_FALSE(fits_pattern("?", "")) << locale;
    EXPECT_TRUE(fits_pattern("a?b",
                             "a\xFF"
                             "b"))
        << locale;
    EXPECT_FALSE(fits_pattern("\xC3\xBF", "\xFF")) << locale;
  }
  std::setlocale(LC_ALL, "C");
}

TEST(NamePattern, Set_IsOneOfItsCharactersOrNone) {
  EXPECT_TRUE(fits_pattern("V[abc]", "Vb"));
  EXPECT_FALSE(fits_pattern("V[abc]", "Vd"));
  EXPECT_TRUE(fits_pattern("V[a-c0-9]", "V7"));
  EXPECT_FALSE(fits_pattern("V[a-c]", "V-"));
  EXPECT_TRUE(fits_pattern("V[a-]", "V-"));
  EXPECT_TRUE(fits_pattern("V[!abc]", "Vd"));
  EXPECT_FALSE(fits_pattern("V[^abc]", "Va"));
  EXPECT_TRUE(fits_pattern("V[]]", "V]"));
  EXPECT_FALSE(fits_pattern("V[!]]", "V]"));
  EXPECT_TRUE(fits_pattern("A[[]1].v", "A[1].v"));
  EXPECT_FALSE(fits_pattern("A[1].v", "A[1].v"));
}

TEST(NamePattern, BracketThatNothingCloses_StandsForItself) {
  EXPECT_TRUE(fits_pattern("A[1", "A[1"));
  EXPECT_TRUE(fits_pattern("A[", "A["));
  EXPECT_FALSE(fits_pattern("A[1", "A1"));
  EXPECT_TRUE(fits_pattern("*[]", "x[]"));
}

TEST(NamePattern, ZeroByte_EndsNeitherPatternNorName) {
  EXPECT_FALSE(fits_pattern("Motor\0x"sv, "Motor"));
  EXPECT_TRUE(fits_pattern("Motor\0x"sv, "Motor\0x"sv));
}

// Tried one after the other, there would be more ways than can be counted.
TEST(NamePattern, ManyStars_AreAnswered) {
  std::string pattern;
  for (int i = 0; i < 100; ++i) pattern += "*[ab]";
  EXPECT_FALSE(fits_pattern(pattern + "c", std::string(1000, 'a')));
}

}  // namespace
}  // namespace plc_client::core
