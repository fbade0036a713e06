// Tag files: columns, device kinds and the problems with their lines.
#include "tools/plc_sim/variables/tag_reader.h"

#include <gmock/gmock.h>

namespace plc_sim {
namespace {

TagDeclaration one(const std::string& line) {
  const TagFile file = read_tag_text("f.csv", line + "\n");
  EXPECT_TRUE(file.problems.empty()) << line << ": " << (file.problems.empty() ? "" : file.problems[0].text);
  return file.tags.empty() ? TagDeclaration{} : file.tags[0];
}

std::string problem_of(const std::string& text) {
  const TagFile file = read_tag_text("f.csv", text);
  return file.problems.empty() ? "" : file.problems[0].text;
}

TEST(TagReader, GlobalScalar_FillsEveryField) {
  const TagDeclaration tag = one("Speed,DINT,,,a,b,c,5,1,0,0,,DM");
  EXPECT_EQ(tag.name, "Speed");
  EXPECT_STREQ(tag.type->name, "DINT");
  EXPECT_EQ(tag.id, 5U);
  EXPECT_TRUE(tag.is_global);
  EXPECT_EQ(tag.device, 6);
  EXPECT_EQ(tag.line, 1U);
}

TEST(TagReader, LocalArray_HasRangesLeftmostFirst) {
  const TagDeclaration tag = one("Cube,INT,[0..1_-2..2_3..5],,,,,7,0,0,9,MAIN,EM1");
  ASSERT_EQ(tag.ranges.size(), 3U);
  EXPECT_EQ(tag.ranges[0].extent(), 2);
  EXPECT_EQ(tag.ranges[1].low, -2);
  EXPECT_EQ(tag.ranges[2].high, 5);
  EXPECT_FALSE(tag.is_global);
  EXPECT_EQ(tag.program, "MAIN");
  EXPECT_EQ(tag.program_number, 9);
  EXPECT_EQ(tag.device, 23);
}

TEST(TagReader, NameWithCommas_IsJoinedAndColumnsMove) {
  EXPECT_EQ(one("Grid[1,2],REAL,,,a,b,c,9").name, "Grid[#1,#2]");
  EXPECT_EQ(one("Cube[1,2,3],REAL,,,a,b,c,9").name, "Cube[#1,#2,#3]");
  EXPECT_EQ(one("Line[2].Speed,INT,,,a,b,c,9").name, "Line[#2].Speed");
}

TEST(TagReader, StringWithLength_IsNoArray) {
  const TagDeclaration tag = one("S,STRING,[0..3],20,a,b,c,7,1");
  EXPECT_EQ(tag.string_length, 20);
  EXPECT_TRUE(tag.ranges.empty());
  EXPECT_EQ(one("S,STRING2,,20,a,b,c,7,1").string_length, 0);
}

TEST(TagReader, NameKind_FollowsDotAndBracket) {
  EXPECT_EQ(one("a[1],BOOL,,,a,b,c,1").name_kind, 1);
  EXPECT_EQ(one("a.b,BOOL,,,a,b,c,1").name_kind, 2);
  EXPECT_EQ(one("a[1].b,BOOL,,,a,b,c,1").name_kind, 3);
}

TEST(TagReader, DeviceColumn_NeedsThreeCharactersWithItsLineEnd) {
  EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,,DM").device, 6);
  EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,,DM,x").device, 30);
  EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,,DM1,x").device, 6);
  EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,").device, 30);
  EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,,aDMbEM").device, 23);
  EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,,123456789012345678901234DM").device, 30);
}

TEST(TagReader, DeviceLetters_GiveTheirCodes) {
  const std::vector<std::pair<std::string, int>> codes{{"EM", 23}, {"MR", 17}, {"LR", 18}, {"DM", 6},
                                                       {"TM", 8},  {"FM", 25}, {"CM", 7},  {"ZF", 44}};
  for (const auto& [letters, code] : codes) {
    EXPECT_EQ(one("A,INT,,,a,b,c,1,1,0,0,," + letters).device, code) << letters;
    EXPECT_EQ(device_name(static_cast<uint8_t>(code)), letters);
  }
  EXPECT_EQ(device_name(30), "none");
}

TEST(TagReader, CarriageReturn_BelongsToNoColumn) {
  EXPECT_EQ(one("A,INT,,,a,b,c,1,0,0,2,MAIN\r").program, "MAIN");
  EXPECT_EQ(one("A,INT,,,a,b,c,12\r").id, 12U);
}

TEST(TagReader, BadLines_AreNamedWithTheirReason) {
  using testing::HasSubstr;
  EXPECT_THAT(problem_of("A,INT,,,a,b,c\n"), HasSubstr("only 7 columns"));
  EXPECT_THAT(problem_of("A,Int,,,a,b,c,1\n"), HasSubstr("unknown type 'Int'"));
  EXPECT_THAT(problem_of("A,INT,[0-9],,a,b,c,1\n"), HasSubstr("has no '..'"));
  EXPECT_THAT(problem_of("A,INT,0..9,,a,b,c,1\n"), HasSubstr("not of the form"));
  EXPECT_THAT(problem_of("A,INT,[9..0],,a,b,c,1\n"), HasSubstr("ends before it starts"));
  EXPECT_THAT(problem_of("A,INT,[0..1_0..1_0..1_0..1],,a,b,c,1\n"), HasSubstr("more than three ranges"));
  EXPECT_THAT(problem_of("A,INT,[0..2000_0..2000],,a,b,c,1\n"), HasSubstr("more than 1048576 elements"));
  EXPECT_THAT(problem_of("A,INT,[-2147483648..2147483647],,a,b,c,1\n"), HasSubstr("elements"));
  EXPECT_THAT(problem_of("A,STRING,,0,a,b,c,1\n"), HasSubstr("string length"));
  EXPECT_THAT(problem_of("A,INT,,,a,b,c,x\n"), HasSubstr("id 'x'"));
  EXPECT_THAT(problem_of(",INT,,,a,b,c,1\n"), HasSubstr("name is empty"));
  EXPECT_THAT(problem_of("A[1,INT,,,a,b,c,1\n"), HasSubstr("not closed"));
  EXPECT_THAT(problem_of("\xC3,INT,,,a,b,c,1\n"), HasSubstr("UTF-8"));
  EXPECT_THAT(problem_of(std::string(300, 'x') + ",INT,,,a,b,c,1\n"), HasSubstr("255"));
}

TEST(TagReader, ProblemLine_IsNumberedAndTheOthersAreRead) {
  const TagFile file = read_tag_text("f.csv", "A,INT,,,a,b,c,1\nbad\nB,INT,,,a,b,c,2\nC,INT,,,a,b,c,3");
  ASSERT_EQ(file.problems.size(), 2U);
  EXPECT_EQ(file.problems[0].line, 2U);
  EXPECT_FALSE(file.problems[0].is_warning);
  EXPECT_EQ(file.problems[1].line, 4U);
  EXPECT_TRUE(file.problems[1].is_warning);
  EXPECT_EQ(file.tags.size(), 3U);
}

}  // namespace
}  // namespace plc_sim
