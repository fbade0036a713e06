// Names of a configuration, looked up in the tag files.
#include "tests/tools/plc_gateway/config/config_fixture.h"
#include "tools/plc_gateway/config/data_types.h"
#include "tools/plc_gateway/config/name_list.h"

namespace plc_gateway_test {
namespace {

using plc_gateway::ConfigResult;
using plc_gateway::DataType;
using plc_gateway::fits_glob;
using plc_gateway::Variable;
using testing::ElementsAre;
using testing::IsEmpty;

class NamesTest : public ConfigTest {
 protected:
  // What the names of one group bring, as "NAME TYPE DATATYPE [LENGTHS] GROUP".
  std::vector<std::string> variables_of(const std::string& polls) {
    Sections sections;
    sections.poll = polls;
    std::vector<std::string> all;
    for (const Variable& variable : load(sections).config.variables) {
      std::string text =
          variable.name + " " + variable.declared_type + " " + std::to_string(static_cast<int>(variable.type));
      for (const size_t length : variable.shape) text += " x" + std::to_string(length);
      all.push_back(text + " of " + std::to_string(variable.group));
    }
    return all;
  }
  std::vector<std::string> said_of_names(const std::string& names) {
    return said_of("[[poll]]\nevery_ms = 500\nnames = [" + names + "]\n", &Sections::poll);
  }
  std::string file() const { return folder_.file("tags/PLCC0A8000A_0.csv"); }
};

TEST_F(NamesTest, EveryKindOfVariable_GetsItsTypeAndShape) {
  EXPECT_THAT(
      variables_of("[[poll]]\nevery_ms = 500\nnames = [\"Speed\", \"Level\", \"Motor.Run\", \"Table\", "
                   "\"Table[3]\", \"Table[0..4]\", \"Grid\", \"Grid[1,0..2]\", \"Text\", \"Bits\", \"Day\", "
                   "\"Big\", \"Main/Step\"]\n"),
      ElementsAre("Speed INT 2 of 0", "Level REAL 9 of 0", "Motor.Run BOOL 11 of 0", "Table INT[0..9] 23 x10 of 0",
                  "Table[3] INT[0..9] 2 of 0", "Table[0..4] INT[0..9] 23 x5 of 0",
                  "Grid LREAL[0..1,0..2] 31 x2 x3 of 0", "Grid[1,0..2] LREAL[0..1,0..2] 31 x3 of 0",
                  "Text STRING(20) 12 of 0", "Bits BOOL[0..15] 32 x16 of 0", "Day DATE 17 of 0", "Big LINT 4 of 0",
                  "Main/Step UINT 6 of 0"));
}

TEST_F(NamesTest, Glob_TakesWhatFitsInTheOrderOfTheTags) {
  EXPECT_THAT(variables_of("[[poll]]\nevery_ms = 500\nnames = [\"Motor.*\", \"M*/St?p\"]\n"),
              ElementsAre("Motor.Speed DINT 3 of 0", "Motor.Run BOOL 11 of 0", "Main/Step UINT 6 of 0"));
}

TEST_F(NamesTest, VariableOfSeveralGroups_BelongsToTheFirst) {
  const std::string polls =
      "[[poll]]\nevery_ms = 100\nnames = [\"Speed\", \"Speed\"]\ndeadband = 2\n"
      "[[poll]]\nevery_ms = 500\nnames = [\"Sp*\", \"Speed\", \"Motor.*\"]\n"
      "[[poll]]\nevery_ms = 500\nnames = [\"*Speed\"]\n";
  EXPECT_THAT(variables_of(polls),
              ElementsAre("Speed INT 2 of 0", "Motor.Speed DINT 3 of 1", "Motor.Run BOOL 11 of 1"));
  EXPECT_THAT(
      said_of(polls, &Sections::poll),
      ElementsAre("7:10: note: Sp* fits variables of earlier groups, which are polled as often as those say: "
                  "1 of 1, the first is Speed, of the group in line 13",
                  "7:17: note: Speed belongs to an earlier group, in line 13, and is polled as often as that says",
                  "10:10: note: *Speed fits variables of earlier groups, which are polled as often as those "
                  "say: 2 of 2, the first is Speed, of the group in line 13"));
  Sections sections;
  sections.poll = polls;
  EXPECT_EQ(load(sections).config.variables[0].deadband, 2.0);
  EXPECT_EQ(load(sections).config.variables[1].deadband, 0.0);
}

TEST_F(NamesTest, UnknownName_ComesWithNearNames) {
  EXPECT_THAT(
      said_of_names("\"Sped\", \"Motor\", \"Nothing\""),
      ElementsAre(
          "3:10: error: Sped: " + file() + " has no variable of this name; did you mean Speed (" + file() + ":1)?",
          "3:18: error: Motor: " + file() + " has no variable of this name; did you mean Motor.Speed or Motor.Run (" +
              file() + ":3)?",
          "3:27: error: Nothing: " + file() +
              " has no variable of this name; correct the name, or take it out of the list"));
}

TEST_F(NamesTest, BadSubscripts_AreTold) {
  EXPECT_THAT(
      said_of_names("\"Table[10]\", \"Speed[1]\", \"Table[1,2]\", \"Step\""),
      ElementsAre("3:10: error: Table[10]: subscript 10 is outside 0..9; correct the name, or take it out of "
                  "the list",
                  "3:23: error: Speed[1]: it is not an array: INT; correct the name, or take it out of the list",
                  "3:35: error: Table[1,2]: it takes 1 subscript, not 2: INT[0..9]; correct the name, or "
                  "take it out of the list",
                  "3:49: error: Step: a variable of a program goes with the program's name: write Main/Step; "
                  "correct the name, or take it out of the list"));
}

TEST_F(NamesTest, VariableThatCannotBeReadOrPublished_IsAnErrorWhenNamed) {
  EXPECT_THAT(said_of_names("\"Small\", \"Days\", \"Days[1]\""),
              ElementsAre("3:10: error: Small cannot be read: the driver transfers no 8-bit values; correct the name, "
                          "or take it out of the list",
                          "3:19: error: Days is declared DATE[0..3], which cannot be published; correct the name, or "
                          "take it out of the list",
                          "3:27: error: Days[1] is declared DATE[0..3], which cannot be published; correct the name, "
                          "or take it out of the list"));
}

TEST_F(NamesTest, VariableThatCannotBeReadOrPublished_IsLeftOutWhenAGlobFits) {
  EXPECT_THAT(said_of_names("\"Day*\", \"S*\""),
              ElementsAre("3:10: note: 1 of the 2 variables that Day* fits is left out: Days is declared DATE[0..3], "
                          "which cannot be published",
                          "3:10: note: 1 of the 2 variables that Day* fits is published without a value, because the "
                          "driver cuts what a type without a width holds: Day; declare a type with a width, or take it "
                          "out of the list",
                          "3:18: note: 1 of the 2 variables that S* fits is left out: Small cannot be read: the driver "
                          "transfers no 8-bit values"));
  EXPECT_THAT(
      said_of_names("\"Sma*\""),
      ElementsAre("3:10: note: 1 of the 1 variable that Sma* fits is left out: Small cannot be read: the driver "
                  "transfers no 8-bit values",
                  "3:10: error: Sma* fits no variable that can be published: take it out of the list"));
}

TEST_F(NamesTest, SeveralThatAreLeftOut_AreListedWithTheirReasons) {
  folder_.write("tags/PLCC0A8000A_0.csv",
                "Byte,BYTE,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,1,1,0,0,,DM\nDays,DATE,[0..3],,,,,2,1,0,0,,DM\n");
  EXPECT_THAT(said_of_names("\"*\""),
              ElementsAre("3:10: note: 2 of the 3 variables that * fits are left out",
                          "3:10: note: left out: Byte cannot be read: the driver transfers no 8-bit values",
                          "3:10: note: left out: Days is declared DATE[0..3], which cannot be published"));
}

TEST_F(NamesTest, ManyThatAreLeftOut_AreCounted) {
  std::string tags = "Speed,INT,,,,,,0,1,0,0,,DM\n";
  for (int i = 1; i <= 22; ++i) tags += "B" + std::to_string(i) + ",BYTE,,,,,," + std::to_string(i) + ",1,0,0,,DM\n";
  folder_.write("tags/PLCC0A8000A_0.csv", tags);
  const std::vector<std::string> said = said_of_names("\"*\"");
  ASSERT_EQ(said.size(), 22U);
  EXPECT_EQ(said[0], "3:10: note: 22 of the 23 variables that * fits are left out");
  EXPECT_EQ(said[20], "3:10: note: left out: B20 cannot be read: the driver transfers no 8-bit values");
  EXPECT_EQ(said[21], "3:10: note: left out: 2 more");
}

// They are in the births, and the log of a run says the same.
TEST_F(NamesTest, VariablesWithoutAValue_AreListed) {
  folder_.write("tags/PLCC0A8000A_0.csv",
                "Day,DATE,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,1,1,0,0,,DM\nNoon,TIME_OF_DAY,,,,,,2,1,0,0,,DM\n");
  EXPECT_THAT(said_of_names("\"*\""),
              ElementsAre("3:10: note: 2 of the 3 variables that * fits are published without a value, because the "
                          "driver cuts what a type without a width holds: Day, Noon; declare types with a width, or "
                          "take them out of the list"));
  EXPECT_THAT(said_of_names("\"Day\""),
              ElementsAre("3:10: note: Day is published without a value, because the driver cuts what a type without a "
                          "width holds; declare a type with a width, or take it out of the list"));
}

TEST_F(NamesTest, NameThatNoMessageCanCarry_IsLeftOut) {
  folder_.write("tags/PLCC0A8000A_0.csv",
                "M\xF6tor,INT,,,,,,0,1,0,0,,DM\nA+B,INT,,,,,,1,1,0,0,,DM\nSpeed,INT,,,,,,2,1,0,0,,DM\n");
  EXPECT_THAT(said_of_names("\"*\""),
              ElementsAre("3:10: note: 1 of the 3 variables that * fits is left out: M\\xf6tor is not UTF-8, which the "
                          "standard's texts are: save its tag file as UTF-8"));
  EXPECT_THAT(said_of("[json]\ntopic = \"a/{name}\"\n[[poll]]\nevery_ms = 500\nnames = [\"A+B\"]\n", &Sections::poll),
              ElementsAre("5:10: error: A+B holds + or #, which no topic may, and [json] makes a topic of the "
                          "name; correct the name, or take it out of the list"));
}

TEST_F(NamesTest, NameThatHidesSomething_MakesNoTopic) {
  folder_.write("tags/PLCC0A8000A_0.csv", "A\xE2\x80\xAE,INT,,,,,,0,1,0,0,,DM\nSpeed,INT,,,,,,2,1,0,0,,DM\n");
  EXPECT_THAT(said_of_names("\"*\""), testing::IsEmpty());
  EXPECT_THAT(
      said_of("[json]\ntopic = \"a/{name}\"\n[[poll]]\nevery_ms = 500\nnames = [\"*\"]\n", &Sections::poll),
      ElementsAre("5:10: note: 1 of the 2 variables that * fits is left out: A\\u{202e} holds the hidden character "
                  "\\u{202e}, and [json] makes a topic of the name"));
}

TEST_F(NamesTest, GlobThatFitsNothing_IsAnError) {
  EXPECT_THAT(said_of_names("\"Motr.*\", \"Table[*]\""),
              ElementsAre("3:10: error: Motr.* fits no declared variable; there are names that begin with Motor; * is "
                          "any characters, ? is one, and brackets stand for themselves",
                          "3:20: error: Table[*] fits no declared variable; * is any characters, ? is one, and "
                          "brackets stand for themselves"));
}

TEST_F(NamesTest, Command_HasTheTypeOfItsVariable) {
  Sections sections;
  sections.last =
      "[[command]]\nname = \"Speed\"\nmin = -5\nmax = 3000.5\nevery_ms = 100\nmax_age_s = 3\nverify = true\n"
      "[[command]]\nname = \"Table[0..1]\"\n";
  sections.poll = "[[poll]]\nevery_ms = 500\nnames = [\"Speed\", \"Table[0..1]\"]\n";
  const ConfigResult result = load(sections);
  EXPECT_THAT(result.findings, IsEmpty());
  ASSERT_EQ(result.config.commands.size(), 2U);
  const plc_gateway::CommandRule& speed = result.config.commands[0];
  EXPECT_EQ(speed.name, "Speed");
  EXPECT_EQ(speed.declared_type, "INT");
  EXPECT_EQ(speed.type, DataType::kInt16);
  EXPECT_EQ(speed.min, -5.0);
  EXPECT_EQ(speed.max, 3000.5);
  EXPECT_EQ(speed.every_ms, 100);
  EXPECT_EQ(speed.max_age_ms, 3000);
  EXPECT_TRUE(speed.verify);
  const plc_gateway::CommandRule& table = result.config.commands[1];
  EXPECT_EQ(table.type, DataType::kInt16Array);
  EXPECT_THAT(table.shape, ElementsAre(2U));
  EXPECT_FALSE(table.min || table.max || table.verify);
  EXPECT_EQ(table.every_ms, 0);
  EXPECT_EQ(table.max_age_ms, 10000);
}

TEST_F(NamesTest, CommandMistakes_AreTold) {
  EXPECT_THAT(
      said_of("[[command]]\nname = \"Sped\"\n"
              "[[command]]\nname = \"Speed\"\nmax = 40000\nmin = -32769\n"
              "[[command]]\nname = \"Speed\"\n"
              "[[command]]\nname = \"Text\"\nmin = 1\n"
              "[[command]]\nname = \"Day\"\n"
              "[[command]]\nname = \"Small\"\n"
              "[[command]]\nname = \"Motor.*\"\n"),
      ElementsAre(
          "2:8: error: Sped: " + file() + " has no variable of this name; did you mean Speed (" + file() + ":1)?",
          "5:7: error: [[command]] max is 40000, and Speed, declared INT, holds -32768 to 32767: give a "
          "limit within these, or none",
          "6:7: error: [[command]] min is -32769, and Speed, declared INT, holds -32768 to 32767: give "
          "a limit within these, or none",
          "8:8: error: Speed has a command already, in line 19: keep one of them",
          "10:8: note: Text is in no [[poll]]: it can be written, but no host sees it in the birth, nor "
          "its value",
          "11:7: error: [[command]] min is for numbers, and Text is declared STRING(20): remove it",
          "13:8: error: Day is declared DATE, which the driver does not write; correct the name, or "
          "remove the command",
          "15:8: error: Small cannot be read: the driver transfers no 8-bit values; correct the name, "
          "or remove the command",
          "17:8: error: [[command]] name 'Motor.*' is a pattern: each variable that may be written is "
          "named by itself"));
}

TEST(Glob, StarAndQuestionMark_AreTheOnlySigns) {
  EXPECT_TRUE(fits_glob("*", ""));
  EXPECT_TRUE(fits_glob("*", "Main/Step"));
  EXPECT_TRUE(fits_glob("M*.S*d", "Motor.Speed"));
  EXPECT_TRUE(fits_glob("*a*b", "aabab"));
  EXPECT_TRUE(fits_glob("Group[*].Speed", "Group[12].Speed"));
  EXPECT_TRUE(fits_glob("S?eed**", "Speed"));
  EXPECT_FALSE(fits_glob("S?eed", "Seed"));
  EXPECT_FALSE(fits_glob("Speed?", "Speed"));
  EXPECT_FALSE(fits_glob("[S]peed", "Speed"));
  EXPECT_FALSE(fits_glob("*a*b", "aabac"));
  EXPECT_FALSE(fits_glob("", "a"));
}

TEST(DataTypes, DeclaredTypes_AreThoseOfTheStandard) {
  const auto code = [](const char* declared, bool is_array) {
    const std::optional<DataType> type = plc_gateway::data_type_of(declared, is_array);
    return type ? static_cast<int>(*type) : 0;
  };
  const std::vector<const char*> types = {"BOOL",  "SINT", "INT",  "DINT",  "LINT",  "USINT", "UINT", "UDINT",
                                          "ULINT", "BYTE", "WORD", "DWORD", "LWORD", "REAL",  "LREAL"};
  std::vector<int> single;
  std::vector<int> array;
  for (const char* type : types) single.push_back(code(type, false));
  for (const char* type : types) array.push_back(code((std::string(type) + "[0..3]").c_str(), true));
  EXPECT_THAT(single, ElementsAre(11, 1, 2, 3, 4, 5, 6, 7, 8, 5, 6, 7, 8, 9, 10));
  EXPECT_THAT(array, ElementsAre(32, 22, 23, 24, 25, 26, 27, 28, 29, 26, 27, 28, 29, 30, 31));
  EXPECT_EQ(code("INT[0..3]", false), 2);
  EXPECT_EQ(code("STRING(20)", false), 12);
  EXPECT_EQ(code("STRING", false), 17);
  EXPECT_EQ(code("DATE_AND_TIME", false), 17);
  EXPECT_EQ(code("DATE[0..3]", true), 0);
  EXPECT_EQ(code("DATE[0..3]", false), 0);
  EXPECT_EQ(code("?", false), 0);
}

TEST(DataTypes, Ranges_AreThoseOfTheTypes) {
  using plc_gateway::range_of;
  EXPECT_EQ(range_of(DataType::kInt8).low, -128.0);
  EXPECT_EQ(range_of(DataType::kInt8Array).high, 127.0);
  EXPECT_EQ(range_of(DataType::kInt64).low, -9223372036854775808.0);
  EXPECT_EQ(range_of(DataType::kUInt16).low, 0.0);
  EXPECT_EQ(range_of(DataType::kUInt16).high, 65535.0);
  EXPECT_EQ(range_of(DataType::kUInt64Array).high, 18446744073709551616.0);
  EXPECT_GT(range_of(DataType::kFloat).high, 3.4e38);
  EXPECT_LT(range_of(DataType::kFloat).low, -3.4e38);
  EXPECT_GT(range_of(DataType::kDouble).high, 1.7e308);
  EXPECT_EQ(range_of(DataType::kString).high, 0.0);
}

}  // namespace
}  // namespace plc_gateway_test
