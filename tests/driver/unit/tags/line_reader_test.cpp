// Tests of the reader of a tag file's lines.
#include "plc_driver/tags/line_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using plc::LineReader;
using plc::TagLine;

struct Line {
  std::string text;
  uint32_t number;
  std::vector<uint32_t> commas;

  bool operator==(const Line& other) const {
    return text == other.text && number == other.number && commas == other.commas;
  }
};

std::ostream& operator<<(std::ostream& out, const Line& line) { return out << line.number << ": " << line.text; }

// All lines of a text that is not followed by a terminator.
std::vector<Line> lines_of(const std::string& text) {
  const std::vector<char> bytes(text.begin(), text.end());
  LineReader reader(bytes.data(), bytes.size());
  std::vector<Line> lines;
  TagLine line;
  while (reader.next(&line)) {
    lines.push_back({std::string(line.text, line.length), reader.number,
                     std::vector<uint32_t>(line.commas, line.commas + line.comma_count)});
  }
  return lines;
}

using Lines = std::vector<Line>;

TEST(LineReader, EmptyText_HasNoLine) { EXPECT_EQ(lines_of(""), Lines{}); }

TEST(LineReader, Lines_KeepTheirEndsAndAreNumberedFromOne) {
  EXPECT_EQ(lines_of("a,b\n\nc\r\n"), (Lines{{"a,b\n", 1, {1}}, {"\n", 2, {}}, {"c\r\n", 3, {}}}));
}

TEST(LineReader, LastLineWithoutALineEnd_DoesNotCount_D6) {
  EXPECT_EQ(lines_of("a\nb"), (Lines{{"a\n", 1, {}}}));
  EXPECT_EQ(lines_of("b"), Lines{});
}

TEST(LineReader, Commas_AreFoundWhereverTheyStand) {
  EXPECT_EQ(lines_of(",a,,b,\n"), (Lines{{",a,,b,\n", 1, {0, 2, 3, 5}}}));
}

TEST(LineReader, PieceOf255Bytes_IsALine) {
  const std::string line = std::string(254, ',') + "\n";
  const Lines lines = lines_of(line);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].text, line);
  EXPECT_EQ(lines[0].commas.size(), 254U);
}

TEST(LineReader, LongerLine_LosesWholePiecesAndTheRestIsALine_D6) {
  EXPECT_EQ(lines_of(std::string(255, ',') + "\nb\n"), (Lines{{"\n", 1, {}}, {"b\n", 2, {}}}));
  EXPECT_EQ(lines_of(std::string(3 * 255, 'x') + "r,s\n"), (Lines{{"r,s\n", 1, {1}}}));
  EXPECT_EQ(lines_of(std::string(255, 'x')), Lines{});
}

TEST(LineReader, PieceWithAZeroByte_DoesNotCountButIsNumbered) {
  EXPECT_EQ(lines_of(std::string("a\0b\nc\n", 6)), (Lines{{"c\n", 2, {}}}));
  EXPECT_EQ(lines_of(std::string("\0\nc\n", 4)), (Lines{{"c\n", 2, {}}}));
}

TEST(LineReader, ZeroByteInALostPiece_DoesNotCostTheRest) {
  EXPECT_EQ(lines_of(std::string(1, '\0') + std::string(254, 'x') + "r\n"), (Lines{{"r\n", 1, {}}}));
}

TEST(LineReader, BytesFrom80On_AreText) {
  EXPECT_EQ(lines_of("\x80\xFF\xE4\xB8\xAD,\n"), (Lines{{"\x80\xFF\xE4\xB8\xAD,\n", 1, {5}}}));
}

}  // namespace
