// Tests of plc-host tags --new: lines of variables and of lists, and what is said of wrong ones.
#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class NewTagsTest : public ProgramTest {
 protected:
  Outcome tags(const std::vector<std::string>& words) {
    std::vector<std::string> all = {"tags", "--new"};
    all.insert(all.end(), words.begin(), words.end());
    return run(all);
  }
};

TEST_F(NewTagsTest, Variable_BecomesALine) {
  const Outcome outcome = tags({"Motor.Speed", "DINT", "--scope", "MAIN", "--program-number", "2"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "Motor.Speed,DINT,,,,,,0,0,0,2,MAIN\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(tags({"Table", "INT", "--ranges", "0..9", "--id", "262144"}).out, "Table,INT,[0..9],,,,,262144,1,0,0,\n");
  EXPECT_EQ(tags({"Lamp", "BOOL", "--device", "MR0"}).out, "Lamp,BOOL,,,,,,0,1,0,0,,MR0\n");
  EXPECT_EQ(tags({"Name", "STRING", "--length", "20"}).out, "Name,STRING,,20,,,,0,1,0,0,\n");
}

TEST_F(NewTagsTest, TypeWithOneMeaning_IsCorrectedAndSaid) {
  const Outcome outcome = tags({"Speed", "INT32"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "Speed,DINT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(outcome.err, "plc-host: 'INT32' is not a type: the driver calls it DINT; corrected\n");
}

TEST_F(NewTagsTest, BlanksAroundANameOrAProgram_AreRemovedAndSaid) {
  const Outcome name = tags({"X ", "INT"});
  EXPECT_EQ(name.code, 0);
  EXPECT_EQ(name.out, "X,INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(name.err, "plc-host: blanks around the name are part of it; corrected\n");
  const Outcome program = tags({"X", "INT", "--scope", "Main "});
  EXPECT_EQ(program.out, "X,INT,,,,,,0,0,0,0,Main\n");
  EXPECT_EQ(program.err, "plc-host: blanks around a field are part of it; corrected\n");
  write_file("list.csv", "Name,Type,Program\nA, INT, Main \n\"X \",INT,\"Main\"\nY,INT,\"Main \"\n");
  const Outcome list = tags({"--from", path("list.csv")});
  EXPECT_EQ(list.code, 1);
  EXPECT_EQ(list.out, "");
  EXPECT_THAT(list.err, HasSubstr("list.csv:4: only blanks tell the program 'Main ' from 'Main': remove them by hand "
                                  "if both are one program\nplc-host: " +
                                  path("list.csv") + ": nothing was written\n"));
  write_file("list.csv", "Name,Type,Program\nA, INT, Main \n\"X \",INT,\"Sub \"\n");
  const Outcome other = tags({"--from", path("list.csv")});
  EXPECT_EQ(other.out, "A,INT,,,,,,0,0,0,0,Main\nX,INT,,,,,,1,0,0,0,Sub\n");
  EXPECT_EQ(other.err, "plc-host: " + path("list.csv") + ":3: blanks around the name are part of it; corrected\n" +
                           "plc-host: " + path("list.csv") + ":3: blanks around a field are part of it; corrected\n");
}

TEST_F(NewTagsTest, NameWithASecondListOfSubscripts_IsRefusedWithTheCause) {
  const Outcome outcome = tags({"Line[1].Pos[2,3]", "REAL"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "plc-host: the driver cannot read a second list of subscripts: it takes 'Line[1].Pos[2' for the name and "
            "'3]' for the type\n"
            "plc-host:     Declare the array by its name without the last subscripts: Line[1].Pos with the ranges "
            "[0..2_0..3] in column 3.\n");
}

TEST_F(NewTagsTest, NameLikeAFormula_IsToldAsTheCheckerDoes) {
  const Outcome outcome = run({"tags", "--new", "=A1+B1", "INT"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "=A1+B1,INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(outcome.err,
            "plc-host: a spreadsheet takes '=A1+B1' for a formula\n"
            "plc-host:     Rename the variable, or edit the file with a text editor only.\n");
  write_file("formula.csv", outcome.out);
  EXPECT_THAT(run({"check", path("formula.csv")}).out,
              HasSubstr("formula.csv:1:1: warning: a spreadsheet takes '=A1+B1' for a formula [T076]\n"));
}

TEST_F(NewTagsTest, WrongVariable_IsRefusedWithWhatToDo) {
  const Outcome outcome = tags({"Speed", "FLOAT"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(
      outcome.err,
      "plc-host: 'FLOAT' is not a type: REAL has 32 bits, LREAL 64\n"
      "plc-host:     Use one of BOOL, SINT, INT, DINT, LINT, USINT, UINT, UDINT, ULINT, REAL, LREAL, STIME, DATE, "
      "STRING, BYTE, WORD, DWORD, LWORD, STRING2, TIME_OF_DAY and DATE_AND_TIME.\n");
  EXPECT_EQ(tags({"Name", "STRING"}).err,
            "plc-host: a STRING without a length is written as a bit\n"
            "plc-host:     Write the length with the type, STRING(20), or with --length 20.\n");
  EXPECT_EQ(tags({"Speed", "INT", "--scope", "MAIN", "--program-number", "300"}).code, 2);
}

TEST_F(NewTagsTest, WhatIsSaidTwice_IsRefusedWhereItDiffers) {
  EXPECT_EQ(tags({"Name", "STRING(20)", "--length", "20"}).err, "");
  const Outcome outcome = tags({"Name", "STRING(20)", "--length", "30"});
  EXPECT_EQ(outcome.code, 2);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "plc-host: two lengths: 20 in the type and 30 beside it\nplc-host:     Leave one of them out.\n");
  EXPECT_EQ(tags({"Table", "INT[0..9]", "--ranges", "0..4"}).err,
            "plc-host: two ranges: [0..9] in the type and [0..4] beside it\nplc-host:     Leave one of them out.\n");
}

TEST_F(NewTagsTest, ListThatIsNone_IsToldWithWhatToDo) {
  write_file("list.xlsx", "PK\3\4...");
  EXPECT_EQ(tags({"--from", path("list.xlsx")}).err,
            "plc-host: " + path("list.xlsx") + ":1: this is a spreadsheet's own file\n" +
                "plc-host:     Save it there as CSV.\nplc-host: " + path("list.xlsx") + ": nothing was written\n");
  write_file("list.csv", "Name;Type\nMAIN/Step;INT\n");
  const Outcome program = tags({"--from", path("list.csv")});
  EXPECT_EQ(program.code, 1);
  EXPECT_EQ(program.err, "plc-host: " + path("list.csv") + ":2: 'MAIN/Step' names a program\n" +
                             "plc-host:     Write the name alone, and its program in the column Program.\nplc-host: " +
                             path("list.csv") + ": nothing was written\n");
}

TEST_F(NewTagsTest, HeadingThatIsNearlyKnown_IsToldWithWhatIsMeant) {
  write_file("list.csv", "Name,Type,Rnage,Comment\nTable,INT,0..9,slow\n");
  const Outcome outcome = tags({"--from", path("list.csv")});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out, "Table,INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(outcome.err,
            "plc-host: " + path("list.csv") + ":1: column 3 'Rnage' is not used; did you mean Range?\n" +
                "plc-host:     Correct the heading where the column counts; a column that is not used does no harm.\n");
}

TEST_F(NewTagsTest, FileThatCannotBeWritten_IsToldWithWhatToDo) {
  const Outcome folder = tags({"Speed", "INT", "--output", folder_.path()});
  EXPECT_EQ(folder.code, 8);
  EXPECT_EQ(folder.err, "plc-host: cannot write " + folder_.path() + ": it is a folder. Try: name a file in it\n");
}

TEST_F(NewTagsTest, WordsThatDoNotFit_AreRefused) {
  const std::vector<std::string> wrong[] = {{"Speed"},
                                            {"Speed", "INT", "Lamp"},
                                            {"--from", "list.csv", "Speed", "INT"},
                                            {"Speed", "INT", "--json"},
                                            {"Speed", "INT", "--names"},
                                            {"Speed", "INT", "--overwrite"},
                                            {"--from", "list.csv", "--length", "4"},
                                            {"Speed", "INT", "--id", "3", "--after", "machine.csv"}};
  for (const std::vector<std::string>& words : wrong) EXPECT_EQ(tags(words).code, 2) << words.back();
  EXPECT_EQ(run({"tags"}).code, 2);
  EXPECT_EQ(run({"tags", path("machine.csv"), path("machine.csv")}).code, 2);
  EXPECT_EQ(run({"tags", path("machine.csv"), "--scope", "MAIN"}).code, 2);
}

TEST_F(NewTagsTest, IdThatNoHostCanUse_IsRefusedWithTheRanges) {
  for (const char* id : {"65536", "262143"}) {
    const Outcome outcome = tags({"Speed", "INT", "--id", id});
    EXPECT_EQ(outcome.code, 2);
    EXPECT_EQ(outcome.err, "plc-host: --id " + std::string(id) +
                               ": no host can use it; give 0 to 65535 for a plain variable, 262144 to 16777215 for an "
                               "indexed one\n");
  }
  EXPECT_EQ(tags({"Speed", "INT", "--id", "65535"}).out, "Speed,INT,,,,,,65535,1,0,0,\n");
}

TEST_F(NewTagsTest, LastIdThatAHostCanForm_IsWrittenAndReadTheNextOneIsNot) {
  EXPECT_EQ(tags({"Speed", "INT", "--id", "16777215"}).out, "Speed,INT,,,,,,16777215,1,0,0,\n");
  const Outcome next = tags({"Speed", "INT", "--id", "16777216"});
  EXPECT_EQ(next.code, 2);
  EXPECT_EQ(next.err, "plc-host: --id 16777216: give a number from 0 to 16777215; plc-host tags --help tells more\n");
  write_file("last.csv",
             "Before,INT,,,,,,16777214,1,0,0,\nSpeed,INT,,,,,,16777215,1,0,0,\n_end,INT,,,,,,16785408,1,0,0,\n");
  const Outcome read = run({"read", "Speed", "--sim", path("last.csv"), "--simulator", PLC_HOST_SIMULATOR});
  EXPECT_EQ(read.code, 0) << read.err;
  EXPECT_THAT(run({"check", path("last.csv")}).out, Not(HasSubstr("T105")));
  write_file("past.csv", "Speed,INT,,,,,,16777216,1,0,0,\nNext,INT,,,,,,16777217,1,0,0,\n");
  EXPECT_EQ(run({"read", "Speed", "--sim", path("past.csv"), "--simulator", PLC_HOST_SIMULATOR}).code, 1);
  EXPECT_THAT(run({"check", path("past.csv")}).out,
              HasSubstr("past.csv:1:16: error: ids end at 16777215: hosts cannot ask for this one [T105]\n"));
}

TEST_F(NewTagsTest, LineBehindAFile_HasItsNextNumber) {
  write_file("tags.csv", "Speed,INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(tags({"Lamp", "BOOL", "--after", path("tags.csv")}).out, "Lamp,BOOL,,,,,,1,1,0,0,\n");
  const Outcome twice = tags({"Speed", "BOOL", "--after", path("tags.csv")});
  EXPECT_EQ(twice.code, 2);
  EXPECT_EQ(twice.err, "plc-host: the variable is declared already, in " + path("tags.csv") +
                           ":1\nplc-host:     Leave one of them out.\n");
  write_file("open.csv", "Speed,INT,,,,,,0,1,0,0,");
  EXPECT_EQ(tags({"Lamp", "BOOL", "--after", path("open.csv")}).code, 4);
}

TEST_F(NewTagsTest, LineBehindAFileOfAnotherForm_IsRefusedWithTheCorrection) {
  const std::pair<std::string, std::string> files[] = {
      {"Speed;INT;;;;;;0;1;0;0;\n", "the fields are separated by semicolons, not by commas"},
      {"\"Speed\",INT,,,,,,0,1,0,0,\n", "fields are in quotes, which the driver takes for part of them"},
      {std::string("\xFF\xFES\0,\0I\0N\0T\0\n\0", 14), "the file is UTF-16 (little endian), not UTF-8"}};
  for (const auto& [text, reason] : files) {
    write_file("tags.csv", text);
    const Outcome outcome = tags({"Lamp", "BOOL", "--after", path("tags.csv")});
    EXPECT_EQ(outcome.code, 4);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "plc-host: " + path("tags.csv") + ": " + reason + ". Try: plc-host check --fix COPY " +
                               path("tags.csv") + "\n");
  }
}

TEST_F(NewTagsTest, List_BecomesAFileThatReplacesNoneWithoutConsent) {
  write_file("list.csv", "Name;Type;Comment\r\nSpeed;DINT;fast, slow\r\n\"Grid[1,2]\";real;\r\n");
  const std::string lines = "Speed,DINT,,,,,,0,1,0,0,\nGrid[1,2],REAL,,,,,,1,1,0,0,\n";
  EXPECT_EQ(tags({"--from", path("list.csv")}).out, lines);
  write_file("there.csv", "mine");
  const Outcome refused = tags({"--from", path("list.csv"), "--output", path("there.csv")});
  EXPECT_EQ(refused.code, 8);
  EXPECT_EQ(file_text(path("there.csv")), "mine");
  const Outcome written = tags({"--from", path("list.csv"), "--output", path("there.csv"), "--overwrite"});
  EXPECT_EQ(written.code, 0);
  EXPECT_EQ(written.out, "");
  EXPECT_EQ(written.err, "plc-host: " + path("list.csv") +
                             ":3: 'real' is not a type: types are written REAL; corrected\n" +
                             "plc-host: " + path("there.csv") + ": 2 variables\n");
  EXPECT_EQ(file_text(path("there.csv")), lines);
  EXPECT_EQ(tags({"--from", path("list.csv"), "--output", path("list.csv"), "--overwrite"}).code, 8);
}

TEST_F(NewTagsTest, ProgramThatBeginsAnother_IsNamedWithTheLineOfItsFile) {
  const std::string advice = "plc-host:     Rename one of the programs.\n";
  write_file("list.csv", "Name,Type,Program\nA,INT,\nB,INT,\nC,INT,Main\nD,INT,Main2\n");
  EXPECT_EQ(
      tags({"--from", path("list.csv")}).err,
      "plc-host: " + path("list.csv") + ":5: the program 'Main' of line 4 is the beginning of 'Main2'\n" + advice);
  write_file("base.csv", "A,INT,,,,,,0,1,0,0,\nC,INT,,,,,,1,0,0,1,Main\n");
  write_file("more.csv", "Name,Type,Program\nD,INT,Main2\n");
  EXPECT_EQ(tags({"--from", path("more.csv"), "--after", path("base.csv")}).err,
            "plc-host: " + path("more.csv") + ":2: the program 'Main' of " + path("base.csv") +
                ":2 is the beginning of 'Main2'\n" + advice);
}

TEST_F(NewTagsTest, WrongList_WritesNothing) {
  std::string list;
  for (int i = 0; i < 300; ++i) list += "V" + std::to_string(i) + ",XY\n";
  write_file("list.csv", list);
  const Outcome outcome = tags({"--from", path("list.csv"), "--output", path("new.csv")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(count_of(outcome.err, "'XY' is not a type\n"), 10U);
  EXPECT_THAT(outcome.err, EndsWith("plc-host: " + path("list.csv") + ": and 290 more of T041\nplc-host: " +
                                    path("list.csv") + ": nothing was written\n"));
  EXPECT_NE(access(path("new.csv").c_str(), F_OK), 0);
  EXPECT_EQ(tags({"--from", path("missing.csv")}).code, 4);
}

}  // namespace
