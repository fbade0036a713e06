// Lines of tag files from names and types: what is written, what is refused, and that the checker has nothing to say.
#include "new_tags.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "checker.h"
#include "type_names.h"

namespace tag_check {
namespace {

NewTag new_tag(const std::string& name, const std::string& type) {
  NewTag tag;
  tag.name = name;
  tag.type = type;
  return tag;
}

// "T041 3, T050 4" by the places of the variables.
std::string told(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += (text.empty() ? "" : ", ") + std::string(finding.rule) + " " + std::to_string(finding.line);
  }
  return text;
}

std::string lines_of_list(const std::string& list_text) {
  const NewTagList list = read_tag_list(list_text);
  EXPECT_EQ(told(list.findings), "");
  return make_tag_lines(list.tags, {}).text;
}

std::string told_of_list(const std::string& list_text) {
  const NewTagList list = read_tag_list(list_text);
  std::string text = told(list.findings);
  const std::string more = told(make_tag_lines(list.tags, {}).findings);
  return text + (text.empty() || more.empty() ? "" : ", ") + more;
}

TEST(NewTags, Line_HasTheTwelveColumnsThatTheDriverReads) {
  const std::pair<NewTag, const char*> lines[] = {
      {new_tag("Motor.Speed", "DINT"), "Motor.Speed,DINT,,,,,,0,1,0,0,\n"},
      {new_tag("Name", "STRING(20)"), "Name,STRING,,20,,,,0,1,0,0,\n"},
      {new_tag("Name", "STRING[20]"), "Name,STRING,,20,,,,0,1,0,0,\n"},
      {new_tag("Table", "ARRAY[0..9,0..4] OF INT"), "Table,INT,[0..9_0..4],,,,,0,1,0,0,\n"},
      {new_tag("Table", "INT[0..9]"), "Table,INT,[0..9],,,,,0,1,0,0,\n"},
      {new_tag("Grid[1,2]", "real"), "Grid[1,2],REAL,,,,,,0,1,0,0,\n"},
      {new_tag(" Speed ", " INT32 "), "Speed,DINT,,,,,,0,1,0,0,\n"}};
  for (const auto& [tag, line] : lines) EXPECT_EQ(make_tag_lines({tag}, {}).text, line);
}

NewTag with_ranges_and_length(const std::string& type, const std::string& ranges, const std::string& length) {
  NewTag tag = new_tag("X", type);
  tag.ranges = ranges;
  tag.length = length;
  return tag;
}

TEST(NewTags, ProgramCalledGlobal_MeansNone) {
  for (const char* word : {"global", "Global", " GLOBAL "}) {
    NewTag tag = new_tag("A", "INT");
    tag.scope = word;
    EXPECT_EQ(make_tag_lines({tag}, {}).text, "A,INT,,,,,,0,1,0,0,\n") << word;
  }
}

TEST(NewTags, LengthOrRangesSaidTwiceAlike_CountOnce) {
  const NewTagLines text = make_tag_lines({with_ranges_and_length("STRING(20)", "", "20")}, {});
  EXPECT_EQ(text.text, "X,STRING,,20,,,,0,1,0,0,\n");
  EXPECT_EQ(told(text.findings), "");
  const NewTagLines array = make_tag_lines({with_ranges_and_length("INT[0..9]", "0..9", "")}, {});
  EXPECT_EQ(array.text, "X,INT,[0..9],,,,,0,1,0,0,\n");
  EXPECT_EQ(told(array.findings), "");
}

TEST(NewTags, LengthsOrRangesThatDiffer_AreAFault) {
  const NewTagLines text = make_tag_lines({with_ranges_and_length("STRING(20)", "", "30")}, {});
  ASSERT_EQ(told(text.findings), "T044 1");
  EXPECT_EQ(text.findings[0].message, "two lengths: 20 in the type and 30 beside it");
  const NewTagLines array = make_tag_lines({with_ranges_and_length("INT[0..9]", "0..4", "")}, {});
  ASSERT_EQ(told(array.findings), "T044 1");
  EXPECT_EQ(array.findings[0].message, "two ranges: [0..9] in the type and [0..4] beside it");
}

TEST(NewTags, ArrayWithoutBounds_IsToldWithThem) {
  const std::pair<const char*, const char*> types[] = {
      {"INT[10]", "an array has both bounds: write INT[0..9]"},
      {"real [ 10 , 5 ]", "an array has both bounds: write REAL[0..9_0..4]"},
      {"ARRAY[10] OF INT32", "an array has both bounds: write DINT[0..9]"},
      {"ARRAY OF BOOL", "an array has its bounds: write BOOL[0..9] for 10 elements"},
      {"ARRAY", "an array has its bounds: write INT[0..9] for 10 elements"},
      {"INT[]", "an array has its bounds: write INT[0..9] for 10 elements"}};
  for (const auto& [type, hint] : types) {
    const NewTagLines made = make_tag_lines({new_tag("X", type)}, {});
    ASSERT_EQ(told(made.findings), "T041 1") << type;
    EXPECT_EQ(made.findings[0].message, "'" + std::string(type) + "' is not a type: " + hint);
  }
  const NewTagLines unknown = make_tag_lines({new_tag("X", "THING[10]")}, {});
  ASSERT_EQ(told(unknown.findings), "T041 1");
  EXPECT_EQ(unknown.findings[0].message, "'THING[10]' is not a type");
}

TEST(NewTags, NameOfATypeWithAZeroBehindIt_IsNoType) {
  EXPECT_TRUE(is_type("INT"));
  for (const size_t zeros : {size_t{1}, size_t{2}, size_t{40}}) {
    EXPECT_FALSE(is_type("INT" + std::string(zeros, '\0'))) << zeros;
  }
}

TEST(NewTags, NameThatCanBeNone_IsToldWithWhatWasMeant) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"DINT", "Speed", "'DINT' is a type and 'Speed' is none: the name stands first, write Speed and then DINT"},
      {"Table[]", "INT",
       "'Table[]' has nothing between its brackets: write Table, with the ranges of an array beside it, as in 0..9"},
      {"Table [1]", "INT", "'Table [1]' has a blank before its subscripts: write Table[1]"}};
  for (const auto& [name, type, message] : cases) {
    const NewTagLines made = make_tag_lines({new_tag(name, type)}, {});
    ASSERT_EQ(told(made.findings), "T020 1") << name;
    EXPECT_EQ(made.findings[0].message, message);
    EXPECT_TRUE(made.findings[0].has_remedy);
    EXPECT_EQ(made.text, "");
  }
  EXPECT_EQ(told(make_tag_lines({new_tag("DINT", "INT")}, {}).findings), "");
  EXPECT_EQ(told(make_tag_lines({new_tag("Table[1]", "INT")}, {}).findings), "");
}

TEST(NewTags, HeadingOfAList_IsNoVariable) {
  EXPECT_EQ(told_of_list("Name;Comment\nSpeed;fast\nLamp;red\n"), "T040 1");
  EXPECT_EQ(told_of_list("Speed;DINT\nName;Type\nLamp;INT\n"), "T006 2");
  EXPECT_EQ(told_of_list("Name;Type\nSpeed;DINT\nName;Type\n"), "T006 3");
  EXPECT_EQ(lines_of_list("Name;INT\n"), "Name,INT,,,,,,0,1,0,0,\n");
}

TEST(NewTags, LineBreakWithinQuotes_EndsNoLineOfAList) {
  EXPECT_EQ(lines_of_list("Name;Type;Comment\nSpeed;DINT;\"fast,\nor slow\"\nLamp;INT;x\n"),
            "Speed,DINT,,,,,,0,1,0,0,\nLamp,INT,,,,,,1,1,0,0,\n");
  EXPECT_EQ(told_of_list("Name;Type\n\"Sp\need\";DINT\nLamp;FLOAT\n"), "T028 2, T041 4");
  EXPECT_EQ(told_of_list("Speed;DINT;\"open\nLamp;INT\n"), "T009 1");
}

TEST(NewTags, LocalVariable_HasItsProgramAndItsNumber) {
  NewTag tag = new_tag("Step", "INT");
  tag.scope = "MAIN";
  tag.number = "3";
  tag.device = "MR0";
  EXPECT_EQ(make_tag_lines({tag}, {"", "", 7}).text, "Step,INT,,,,,,7,0,0,3,MAIN,MR0\n");
}

TEST(NewTags, Line_BehindAFileHasTheNextNumberAndNoVariableTwice) {
  const std::string before = "Speed,INT,,,,,,0,1,0,0,\n";
  const NewTagLines made = make_tag_lines({new_tag("Lamp", "BOOL")}, {before, "tags.csv", 1});
  EXPECT_EQ(made.text, "Lamp,BOOL,,,,,,1,1,0,0,\n");
  EXPECT_EQ(told(made.findings), "");
  EXPECT_EQ(told(make_tag_lines({new_tag("Speed", "BOOL")}, {before, "tags.csv", 1}).findings), "T110 1");
}

TEST(NewTags, WhatTheRulesRefuse_IsTold) {
  EXPECT_EQ(told(make_tag_lines({new_tag("X", "FLOAT")}, {}).findings), "T041 1");
  EXPECT_EQ(told(make_tag_lines({new_tag("X", "STRING")}, {}).findings), "T050 1");
  EXPECT_EQ(told(make_tag_lines({new_tag("", "INT")}, {}).findings), "T020 1");
  EXPECT_EQ(told(make_tag_lines({new_tag("a,b", "INT")}, {}).findings), "T014 1");
  EXPECT_EQ(told(make_tag_lines({new_tag("a\nb", "INT")}, {}).findings), "T028 1");
  EXPECT_EQ(told(make_tag_lines({new_tag("MAIN/Step", "INT")}, {}).findings), "T075 1");
  EXPECT_EQ(told(make_tag_lines({new_tag("a\xFF", "INT")}, {}).findings), "T023 1");
  EXPECT_EQ(told(make_tag_lines({new_tag(std::string(250, 'x'), "INT")}, {}).findings), "T002 1");
}

TEST(NewTags, ListsAsSpreadsheetsWriteThem_GiveTheSameLines) {
  const std::string lines = "Speed,INT,,,,,,0,1,0,0,\nGrid[1,2],REAL,,,,,,1,1,0,0,\n";
  const char* const lists[] = {"Speed,INT\nGrid[1,2],REAL\n",
                               "Speed,INT\r\n\"Grid[1,2]\",REAL\r\n",
                               "Speed;INT\nGrid[1,2];REAL",
                               "\xEF\xBB\xBFSpeed\tINT\rGrid[1,2]\tREAL\r",
                               "sep=;\nName;Type\nSpeed;INT\n\n;\nGrid[1,2];REAL\n",
                               R"("Type","Comment","Variable name"
"INT","fast, slow","Speed"
"REAL","","Grid[1,2]"
)"};
  for (const char* list : lists) EXPECT_EQ(lines_of_list(list), lines) << list;
  std::string utf16 = "\xFF\xFE";
  for (const char* sign = lists[4]; *sign != '\0'; ++sign) utf16 += {*sign, '\0'};
  EXPECT_EQ(lines_of_list(utf16), lines);
}

TEST(NewTags, ColumnsOfAList_FollowItsHeadingOrTheirPlace) {
  const std::string lines = "Table,INT,[0..9],,,,,0,1,0,0,,DM1\nStep,STRING,,8,,,,1,0,0,0,MAIN\n";
  EXPECT_EQ(lines_of_list("Table,INT,0..9,,,DM1\nStep,STRING,,8,MAIN,\n"), lines);
  EXPECT_EQ(lines_of_list("Program;Length;Data Type;Range;Device;Tag\n;;INT;0..9;DM1;Table\nMAIN;8;STRING;;;Step\n"),
            lines);
}

TEST(NewTags, FaultOfAList_HasItsLine) {
  EXPECT_EQ(told_of_list("Name,Type\n\nSpeed,INT\nSpeed,DINT\nLamp,FLOAT\n,INT\nX,\n\"open,INT\n"),
            "T009 8, T110 4, T041 5, T020 6, T040 7");
  EXPECT_EQ(told_of_list(""), "T006 1");
  EXPECT_EQ(told_of_list("Name,Type\n"), "T006 1");
  EXPECT_EQ(told_of_list("Speed,INT,,,,,,0,1,0,0,\n"), "T006 1");
  EXPECT_EQ(told_of_list("Speed\n"), "T040 1");
  EXPECT_EQ(told_of_list("\xFF\xFES"), "T007 1");
  EXPECT_EQ(told_of_list("Speed;\"a,b\"\n"), "T014 1");
  EXPECT_EQ(told_of_list("Name;Type\nMAIN/Step;INT\n"), "T075 2");
  EXPECT_EQ(told_of_list("PK\3\4;x\n"), "T016 1");
}

TEST(NewTags, HeadingInOtherWords_IsToldWithTheWordsThatCount) {
  const NewTagList list = read_tag_list("Variable;Typ;Bemerkung\nSpeed;INT;schnell\n");
  ASSERT_EQ(list.findings.size(), 1U);
  EXPECT_EQ(list.findings[0].message,
            "'Typ' is not a type; a heading calls the columns Name, Type, Range, Length, Program and Device");
  EXPECT_EQ(list.tags.size(), 1U);
}

TEST(NewTags, HeadingWithTwoColumnsForOneThing_IsAFault) {
  const NewTagList list = read_tag_list("Name;Type;Tag name\nSpeed;INT;Torque\n");
  ASSERT_EQ(told(list.findings), "T044 1");
  EXPECT_EQ(list.findings[0].message, "columns 1 and 3 say the same: 'Name' and 'Tag name'");
}

TEST(NewTags, LinesOfALongList_HaveIdsOfTheirOwnAndNoFinding) {
  std::string list = "Name;Type\n";
  for (int i = 0; i < 65536; ++i) list += "V" + std::to_string(i) + ";DINT\n";
  const std::string text = lines_of_list(list);
  EXPECT_TRUE(check_text("PLC1_0.csv", text, {}).empty());
  EXPECT_EQ(text.substr(text.find("V65535")), "V65535,DINT,,,,,,65535,1,0,0,\n");
  EXPECT_EQ(told_of_list(list + "One;INT\n"), "T067 65538");
}

}  // namespace
}  // namespace tag_check
