// Tests of the parser of one tag line, column 1: joined subscripts, '#' marks, names that are too long.
#include <gtest/gtest.h>

#include <string>

#include "plc_driver/tags/tag_line.h"

namespace {

TagEntry named_entry(const std::string& line) {
  TagEntry entry{};
  pase_str(line.c_str(), &entry);
  return entry;
}

// The name that column 1 alone gives.
std::string name_of(const std::string& column) { return named_entry(column + ",INT,,,a,b,c,9\n").name; }

TEST(TagName, Subscript_IsMarked) {
  EXPECT_EQ(name_of("Table[3]"), "Table[#3]");
  EXPECT_EQ(name_of("Line[2].Speed"), "Line[#2].Speed");
  EXPECT_EQ(name_of("a[1].b[2].c"), "a[#1].b[#2].c");
  EXPECT_EQ(name_of("Plain"), "Plain");
  EXPECT_EQ(name_of("Half]"), "Half]");
}

TEST(TagName, BracketAtTheBeginning_IsNotMarked) {
  EXPECT_EQ(name_of("[3]"), "[3]");
  EXPECT_EQ(name_of("[3][4]"), "[3][#4]");
}

TEST(TagName, TwoSubscripts_AreJoinedAndColumnsMoveUpByOne) {
  const TagEntry entry = named_entry("Grid[1,2],REAL,[0..3],,a,b,c,9,1,0,0,,DM\n");
  EXPECT_STREQ(entry.name, "Grid[#1,#2]");
  EXPECT_EQ(entry.type_code, 0xCA);
  EXPECT_EQ(entry.dim1_high, 3);
  EXPECT_EQ(entry.tag_id, 9U);
  EXPECT_EQ(entry.device_kind, 6);
  EXPECT_EQ(entry.name_kind, 1);
}

TEST(TagName, ThreeSubscripts_AreJoinedAndColumnsMoveUpByTwo) {
  const TagEntry entry = named_entry("Cube[1,2,3].x,REAL,,,a,b,c,9,1\n");
  EXPECT_STREQ(entry.name, "Cube[#1,#2,#3].x");
  EXPECT_EQ(entry.type_code, 0xCA);
  EXPECT_EQ(entry.tag_id, 9U);
  EXPECT_EQ(entry.is_global, 1);
  EXPECT_EQ(entry.name_kind, 3);
}

TEST(TagName, EmptyThirdPart_StillGetsItsComma) {
  const TagEntry entry = named_entry("Cube[1,2,,REAL,,,a,b,c,9\n");
  EXPECT_STREQ(entry.name, "Cube[#1,#2,#");
  EXPECT_EQ(entry.type_code, 0xCA);
  EXPECT_EQ(entry.tag_id, 9U);
}

TEST(TagName, EmptyParts_AreJoinedAsTheyAre) {
  EXPECT_STREQ(named_entry("Grid[,],REAL,,,a,b,c,9\n").name, "Grid[#,#]");
  EXPECT_STREQ(named_entry("Cube[,,],REAL,,,a,b,c,9\n").name, "Cube[#,#,#]");
}

TEST(TagName, BracketAtTheBeginningOfAJoinedName_IsMarked) {
  EXPECT_STREQ(named_entry("[1,2],REAL,,,a,b,c,9\n").name, "[#1,#2]");
}

TEST(TagName, FurtherBrackets_MarkTheCommasThatFollowThemToo) {
  EXPECT_STREQ(named_entry("A[[1,2],REAL,,,a,b,c,9\n").name, "A[#[#1,##2]");
  EXPECT_STREQ(named_entry("A[1,B[2],REAL,,,a,b,c,9\n").name, "A[#1,#B[#2]");
  EXPECT_STREQ(named_entry("A[1,[2,3],REAL,,,a,b,c,9\n").name, "A[#1,#[#2,##3]");
}

TEST(TagName, ClosedSubscriptBeforeAnOpenOne_IsNotJoined) {
  const TagEntry entry = named_entry("A[1].B[2,3],REAL,,,a,b,c,9\n");
  EXPECT_STREQ(entry.name, "A[#1].B[#2");
  EXPECT_EQ(entry.type_code, 0);
}

TEST(TagName, LineThatEndsWithinTheSubscripts_LeavesNoName) {
  EXPECT_STREQ(named_entry("Grid[1\n").name, "");
  EXPECT_STREQ(named_entry("Grid[1,2]\n").name, "");
  EXPECT_STREQ(named_entry("Cube[1,2,3]\n").name, "");
}

TEST(TagName, NameOf255Bytes_IsKeptWhole) {
  const std::string longest(255, 'n');
  EXPECT_EQ(name_of(longest), longest);
  EXPECT_EQ(name_of(std::string(251, 'n') + "[1]"), std::string(251, 'n') + "[#1]");
}

TEST(TagName, LongerName_IsCutTo255Bytes) {
  EXPECT_EQ(name_of(std::string(256, 'n')), std::string(255, 'n'));
  // The marks count: the name is cut behind the last byte that fits.
  EXPECT_EQ(name_of(std::string(251, 'n') + "[12]"), std::string(251, 'n') + "[#12");
  EXPECT_STREQ(named_entry(std::string(252, 'n') + "[1,2],INT,,,a,b,c,9\n").name,
               (std::string(252, 'n') + "[#1").c_str());
}

TEST(TagName, CharacterThatDoesNotFitWhole_IsLeftOut) {
  // U+4E2D takes three bytes: 84 of them fill 252, the 85th fills 255, the 86th does not fit.
  std::string name;
  for (int i = 0; i < 86; ++i) name += "\xE4\xB8\xAD";
  EXPECT_EQ(name_of(name), name.substr(0, 255));
  EXPECT_EQ(name_of("n" + name), "n" + name.substr(0, 252));
  EXPECT_EQ(name_of("nn" + name), "nn" + name.substr(0, 252));
  EXPECT_EQ(name_of(std::string(254, 'n') + "\xC3\xA9"), std::string(254, 'n'));
  EXPECT_EQ(name_of(std::string(253, 'n') + "\xC3\xA9"), std::string(253, 'n') + "\xC3\xA9");
}

TEST(TagName, OldName_IsClearedToItsEnd) {
  TagEntry entry{};
  const std::string old(255, 'o');
  pase_str((old + ",INT,,,a,b,c,9\n").c_str(), &entry);
  ASSERT_EQ(std::string(entry.name), old);
  pase_str("New,INT,,,a,b,c,9\n", &entry);
  EXPECT_EQ(std::string(entry.name, sizeof entry.name), "New" + std::string(253, '\0'));
  pase_str("", &entry);
  EXPECT_EQ(std::string(entry.name, sizeof entry.name), std::string(256, '\0'));
}

}  // namespace
