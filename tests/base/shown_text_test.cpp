// Tests of text from outside as it is shown: every character of the dangerous kinds, every byte, what is no UTF-8.
#include "base/shown_text.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <vector>

#include "base/utf8.h"

namespace plc_base {
namespace {

std::string utf8(char32_t value) {
  const auto part = [value](unsigned shift, unsigned mark) {
    return static_cast<char>(mark | (static_cast<unsigned>(value >> shift) & 0x3FU));
  };
  if (value < 0x80) return {static_cast<char>(value)};
  if (value < 0x800) return {static_cast<char>(0xC0U | static_cast<unsigned>(value >> 6U)), part(0, 0x80)};
  if (value < 0x10000) {
    return {static_cast<char>(0xE0U | static_cast<unsigned>(value >> 12U)), part(6, 0x80), part(0, 0x80)};
  }
  return {static_cast<char>(0xF0U | static_cast<unsigned>(value >> 18U)), part(12, 0x80), part(6, 0x80), part(0, 0x80)};
}

std::string digits(unsigned value, int least) {
  char text[32];
  std::snprintf(text, sizeof text, "%0*x", least, value);
  return text;
}

// Written out, and not taken from the program: each is in one of these.
bool is_dangerous(char32_t value) {
  static constexpr char32_t kRanges[][2] = {
      {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},       {0x34F, 0x34F},     {0x61C, 0x61C},
      {0x115F, 0x1160}, {0x17B4, 0x17B5}, {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E},
      {0x2060, 0x206F}, {0x3164, 0x3164}, {0xFDD0, 0xFDEF},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},
      {0xFFA0, 0xFFA0}, {0xFFF0, 0xFFFB}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF}};
  for (const auto& range : kRanges) {
    if (value >= range[0] && value <= range[1]) return true;
  }
  return value % 0x10000 == 0xFFFE || value % 0x10000 == 0xFFFF;
}

TEST(ShownLine, EveryCodePoint_IsShownOrEscaped) {
  for (char32_t value = 0; value <= 0x10FFFF; ++value) {
    if (value >= 0xD800 && value <= 0xDFFF) continue;
    std::string expected = utf8(value);
    if (value == '\n') {
      expected = "\\n";
    } else if (value == '\r') {
      expected = "\\r";
    } else if (value == '\t') {
      expected = "\\t";
    } else if (is_dangerous(value)) {
      expected = value < 0x80 ? "\\x" + digits(value, 2) : "\\u{" + digits(value, 1) + "}";
    }
    ASSERT_EQ(is_hidden(value), is_dangerous(value)) << std::hex << static_cast<unsigned>(value);
    ASSERT_EQ(shown_line("a" + utf8(value) + "b"), "a" + expected + "b") << std::hex << static_cast<unsigned>(value);
  }
}

TEST(ShownLine, EveryByteOfNoUtf8_IsANumber) {
  for (unsigned byte = 0x80; byte <= 0xFF; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    ASSERT_EQ(shown_line("a" + one + "b"), "a\\x" + digits(byte, 2) + "b");
    ASSERT_EQ(shown_line(one), "\\x" + digits(byte, 2));
  }
}

TEST(ShownLine, CutAndOverlongAndHalves_AreTheirBytes) {
  EXPECT_EQ(shown_line("\xC0\x9B"), "\\xc0\\x9b");                    // escape, longer than needed
  EXPECT_EQ(shown_line("\xE0\x80\x9B"), "\\xe0\\x80\\x9b");           // the same
  EXPECT_EQ(shown_line("\xED\xA0\x80"), "\\xed\\xa0\\x80");           // half of a surrogate pair
  EXPECT_EQ(shown_line("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");  // beyond the last
  EXPECT_EQ(shown_line("\xE2\x80"), "\\xe2\\x80");                    // cut
  EXPECT_EQ(shown_line("\xE2\x80\x1B[2J"), "\\xe2\\x80\\x1b[2J");     // broken off by a control
  EXPECT_EQ(shown_line("\xC2\xC2\x9B"), "\\xc2\\u{9b}");              // broken off by a control of two bytes
}

TEST(ShownLine, TextThatNeedsNothing_IsUnchanged) {
  for (const char* text : {"", "Motor.Speed[0..4] = \"a\\x1b\"", "Vitesse d'\xC3\xA9t\xC3\xA9",
                           "\xE6\xB8\xA9\xE5\xBA\xA6", "\xD9\x85\xD8\xAD\xD8\xB1\xD9\x83", "\xF0\x9F\x98\x80"}) {
    EXPECT_EQ(shown_line(text), text);
  }
}

TEST(ShownLine, ShownText_ComesBackUnchanged) {
  const std::string once = shown_line("x\nviolation: \x1B[31m\xE2\x80\xAE\xFF");
  EXPECT_EQ(once, "x\\nviolation: \\x1b[31m\\u{202e}\\xff");
  EXPECT_EQ(shown_line(once), once);
}

TEST(ShownLine, ZeroByte_IsNoEnd) { EXPECT_EQ(shown_line(std::string_view("a\0b", 3)), "a\\x00b"); }

TEST(ShownFirst, WhatLooksLikeASpeaker_StandsInQuotes) {
  EXPECT_EQ(shown_first("violation: x\n"), "\"violation: x\\n\"");
  EXPECT_EQ(shown_first("plc-sim:"), "\"plc-sim:\"");
  for (const char* text : {"", "Motor.Speed", "MAIN/Count", "C:1", "a:b c", "a \"b\""})
    EXPECT_EQ(shown_first(text), text);
}

TEST(ShownFirst, BlanksThatNobodySees_StandInQuotes) {
  for (const char* text : {"Main ", " Main", "Main /Count", "Main/ Count", "Main/Count "})
    EXPECT_EQ(shown_first(text), std::string("\"") + text + "\"");
  for (const char* text : {"Main Valve", "/ x", "x /", "a b/c d"}) EXPECT_EQ(shown_first(text), text);
}

TEST(IsFormula, SignsThatBeginOne_AreFoundBehindBlanksAndQuotes) {
  for (const char* text :
       {"=A1", "+x", "-x", "@x", " =x", "'=x", "\uFF1Dx", "\uFE66x", "\uFE62x", "\uFE63x", "\uFE6Bx"})
    EXPECT_TRUE(is_formula(text)) << text;
  for (const char* text : {"", "A=1", "#NAME?", "1-2"}) EXPECT_FALSE(is_formula(text)) << text;
}

TEST(ShownLines, LineFeedsAlone_Stay) { EXPECT_EQ(shown_lines("a\nb\r\n\xE2\x80\xA8\n"), "a\nb\\r\n\\u{2028}\n"); }

// The code points from first to last as one text of JSON: the text itself, with each in it that is not dangerous.
void expect_same_json(char32_t first, char32_t last) {
  std::string text;
  std::string seen;
  for (char32_t value = first; value <= last; ++value) {
    text += utf8(value);
    if (!is_dangerous(value)) seen += utf8(value);
  }
  const std::string shown = shown_json(nlohmann::json(text).dump());
  ASSERT_EQ(nlohmann::json::parse(shown).get<std::string>(), text) << std::hex << static_cast<unsigned>(first);
  // Escapes are of ASCII.
  std::string unescaped;
  for (const char byte : shown) {
    if ((static_cast<unsigned char>(byte) & 0x80U) != 0) unescaped += byte;
  }
  ASSERT_EQ(unescaped, first < 0x80 ? "" : seen) << std::hex << static_cast<unsigned>(first);
  ASSERT_TRUE(first >= 0x80 || is_dangerous(first) == (shown.find(utf8(first)) == std::string::npos)) << shown;
}

TEST(ShownJson, EveryCodePoint_IsTheSameText) {
  for (char32_t value = 0; value < 0x80; ++value) ASSERT_NO_FATAL_FAILURE(expect_same_json(value, value));
  // Of the others, those that differ in their last six bits alone.
  for (char32_t value = 0x80; value <= 0x10FFFF; value += 0x40) {
    if (value >= 0xD800 && value <= 0xDFFF) continue;
    ASSERT_NO_FATAL_FAILURE(expect_same_json(value, value + 0x3F));
  }
}

TEST(ShownJson, EscapesAndLineFeedsOfItsOwn_Stay) {
  EXPECT_EQ(shown_json("{\n  \"a\\n\\\\\": \"\x7F\xC2\x9B\xE2\x80\xA8\xF3\xA0\x80\x81\"\n}\n"),
            "{\n  \"a\\n\\\\\": \"\\u007f\\u009b\\u2028\\udb40\\udc01\"\n}\n");
}

TEST(ShownJson, BytesOfNoUtf8_AreReplaced) { EXPECT_EQ(shown_json("\"a\xFF\""), "\"a\\ufffd\""); }

TEST(ShownCsvCell, PlainText_IsUnchanged) {
  for (const char* text : {"", "abc", "a=b", "12-3", "Motor.Speed[3]", "it's", "pump 3", "a'=1"}) {
    EXPECT_EQ(shown_csv_cell(text), text);
  }
}

TEST(ShownCsvCell, SeparatorsAndQuotes_AreQuoted) {
  EXPECT_EQ(shown_csv_cell("a,b"), "\"a,b\"");
  EXPECT_EQ(shown_csv_cell("a;b"), "a;b");
  EXPECT_EQ(shown_csv_cell("say \"a\""), "\"say \"\"a\"\"\"");
}

TEST(ShownCsvCell, Controls_AreShown) {
  EXPECT_EQ(shown_csv_cell("a\nb\r\x1B"), "a\\nb\\r\\x1b");
  EXPECT_EQ(shown_csv_cell("\t=1"), "\\t=1");
  EXPECT_EQ(shown_csv_cell("\r=1"), "\\r=1");
  EXPECT_EQ(shown_csv_cell("\xE2\x80\x8B=1"), "\\u{200b}=1");
}

TEST(ShownCsvCell, Formula_StandsBehindAnApostrophe) {
  for (const std::string sign :
       {"=", "+", "-", "@", "\xEF\xBC\x9D", "\xEF\xBC\x8B", "\xEF\xBC\x8D", "\xEF\xBC\xA0", "\xE2\x88\x92"}) {
    EXPECT_EQ(shown_csv_cell(sign + "1"), "'" + sign + "1");
    for (const std::string before : {" ", "  ", "'", "\xC2\xA0", "\xE3\x80\x80", "\xE2\x80\x83", "\xE2\x80\x99"}) {
      EXPECT_EQ(shown_csv_cell(before + sign + "1"), "'" + before + sign + "1");
    }
  }
  EXPECT_EQ(shown_csv_cell("=cmd|' /C calc'!A0"), "'=cmd|' /C calc'!A0");
  EXPECT_EQ(shown_csv_cell("\"=1\""), "\"'\"\"=1\"\"\"");
  EXPECT_EQ(shown_csv_cell("=HYPERLINK(\"a\",\"b\")"), "\"'=HYPERLINK(\"\"a\"\",\"\"b\"\")\"");
}

TEST(ShownCsvCell, FormulaBehindASemicolon_StandsBehindAnApostrophe) {
  EXPECT_EQ(shown_csv_cell("a;=1"), "a;'=1");
  EXPECT_EQ(shown_csv_cell("a; \"@b\";c;-d"), "\"a;' \"\"@b\"\";c;'-d\"");
  EXPECT_EQ(shown_csv_cell("a,=1"), "\"a,=1\"");
}

TEST(FirstHidden, IsWrittenOut) {
  EXPECT_EQ(plc_base::first_hidden("plain \xC3\xA4"), "");
  EXPECT_EQ(plc_base::first_hidden(""), "");
  EXPECT_EQ(plc_base::first_hidden("a\xE2\x80\xAE\x1B"), "\\u{202e}");
  EXPECT_EQ(plc_base::first_hidden("\t"), "\\t");
}

TEST(ShownHtml, MarkupAndHiddenCharacters_AreText) {
  EXPECT_EQ(shown_html("a<b> & \"c\" 'd'\n\xE2\x80\xAE\xFF"),
            "a&lt;b&gt; &amp; &quot;c&quot; &#39;d&#39;\\n\\u{202e}\\xff");
  EXPECT_EQ(shown_html("Größe[3]"), "Größe[3]");
}

}  // namespace
}  // namespace plc_base
