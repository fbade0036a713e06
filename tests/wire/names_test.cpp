// Names: conversions and subscripts.
#include "wire/names.h"

#include <gtest/gtest.h>

namespace plc_sim {
namespace {

TEST(Utf16FromUtf8, EverySequenceLength_GivesUnitsAndPairs) {
  EXPECT_EQ(utf16_from_utf8("A\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"),
            (std::u16string{u'A', 0x00E9, 0x4E2D, 0xD83D, 0xDE00}));
  EXPECT_EQ(utf16_from_utf8(""), std::u16string{});
}

TEST(Utf16FromUtf8, MalformedText_GivesNothing) {
  for (const char* bad : {"\x80", "\xC3", "\xC0\x80", "\xE4\xB8", "\xE0\x80\x80", "\xED\xA0\x80", "\xF5\x80\x80\x80",
                          "\xF0\x80\x80\x80", "A\xC3Z"}) {
    EXPECT_FALSE(utf16_from_utf8(bad).has_value()) << bad;
  }
}

TEST(Utf8FromUtf16, LoneSurrogate_BecomesThreeBytes) {
  EXPECT_EQ(utf8_from_utf16(std::u16string(1, 0xD83D)), "\xED\xA0\xBD");
  EXPECT_EQ(utf8_from_utf16(std::u16string{0xDE00, u'A'}), "\xED\xB8\x80\x41");
  EXPECT_EQ(utf8_from_utf16(std::u16string{0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
}

TEST(ShownName, NameOfAnyScript_StaysAsItIs) {
  for (const char* name :
       {"Motor.Speed", "MAIN/Table[3]", "Temp\xC3\xA9rature", "\xE6\xB8\xA9\xE5\xBA\xA6", "A:B", "", " "}) {
    EXPECT_EQ(shown_name(name), name);
  }
}

TEST(ShownName, WhatLooksLikeASpeaker_IsNone) {
  EXPECT_EQ(shown_name("x\nviolation: connection 1"), "x\\nviolation\\x3a connection 1");
  EXPECT_EQ(shown_name("violation:"), "violation\\x3a");
  EXPECT_EQ(shown_name("error:\tx"), "error:\\tx");
  EXPECT_EQ(shown_name("violation:\xC2\xA0x"), "violation\\x3a\xC2\xA0x");
  EXPECT_EQ(shown_name("a\rb"), "a\\rb");
  EXPECT_EQ(shown_name("a\xE2\x80\xA8"
                       "b\xC2\x85"
                       "c"),
            "a\\u{2028}b\\u{85}c");
  EXPECT_EQ(shown_name("\x1B[2J\xE2\x80\xAE"), "\\x1b[2J\\u{202e}");
}

TEST(ShownName, EndlessName_IsCutBetweenCharacters) {
  EXPECT_EQ(shown_name(std::string(512, 'x')), std::string(512, 'x'));
  EXPECT_EQ(shown_name(std::string(513, 'x')), std::string(512, 'x') + "... (513 bytes)");
  std::string text(511, 'x');
  text += "\xC3\xA9";
  EXPECT_EQ(shown_name(text), std::string(511, 'x') + "... (513 bytes)");
}

TEST(SplitElementName, SubscriptsAtTheEnd_AreTakenOff) {
  const ElementName name = split_element_name("Line[#2].Grid[#1,#-5,#2147483648]");
  EXPECT_EQ(name.base, "Line[#2].Grid");
  EXPECT_EQ(name.subscripts, (std::vector<int64_t>{1, -5, 2147483648}));
}

TEST(SplitElementName, AnythingElse_StaysWhole) {
  for (const char* text : {"", "A", "Line[#2].Speed", "A[2]", "A[#]", "A[#-]", "A[#1,]", "A[#1,2]", "[#1]", "A#1]",
                           "A[#12345678901]", "A[#1x]"}) {
    EXPECT_EQ(split_element_name(text).base, text);
    EXPECT_TRUE(split_element_name(text).subscripts.empty()) << text;
  }
}

TEST(MarkSubscripts, TypedName_GetsMarksOnceAndLosesThemAgain) {
  EXPECT_EQ(mark_subscripts("A[1,2].B[3]"), "A[#1,#2].B[#3]");
  EXPECT_EQ(mark_subscripts("A[#1,2]"), "A[#1,#2]");
  EXPECT_EQ(mark_subscripts("A,B"), "A,B");
  EXPECT_EQ(strip_subscript_marks("A[#1,#2].B[#3]"), "A[1,2].B[3]");
  EXPECT_EQ(strip_subscript_marks("#A"), "#A");
}

TEST(SubscriptText, NoneOrSeveral_ReadsBackTheSame) {
  EXPECT_EQ(subscript_text({}), "");
  EXPECT_EQ(subscript_text({1, -2, 3}), "[#1,#-2,#3]");
}

}  // namespace
}  // namespace plc_sim
