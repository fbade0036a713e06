// Tests of plc-host check: its exit codes, and what it leaves of a file that a spreadsheet wrote.
#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

class CheckTest : public ProgramTest {
 protected:
  Outcome check(const std::vector<std::string>& words) {
    std::vector<std::string> all = {"check"};
    all.insert(all.end(), words.begin(), words.end());
    return run(all);
  }
};

TEST_F(CheckTest, CorrectedCopyWithoutErrors_IsSuccess) {
  write_file("PLC1_0.csv", "Speed;int;;;;;;0;1;0;0;\r\n");
  EXPECT_EQ(check({path("PLC1_0.csv")}).code, 1);
  const Outcome fixed = check({path("PLC1_0.csv"), "--fix", path("copy.csv")});
  EXPECT_EQ(fixed.code, 0);
  EXPECT_EQ(fixed.err, "plc-host: " + path("copy.csv") + ": 3 corrections\n");
  EXPECT_EQ(file_text(path("copy.csv")), "Speed,INT,,,,,,0,1,0,0,\n");
  EXPECT_EQ(check({path("copy.csv")}).code, 0);
}

TEST_F(CheckTest, CorrectedCopyWithErrors_IsNoSuccessAndSaysHowMany) {
  write_file("PLC1_0.csv", "Speed;FLOAT;;;;;;0;1;0;0;\n");
  const Outcome fixed = check({path("PLC1_0.csv"), "--fix", path("copy.csv")});
  EXPECT_EQ(fixed.code, 1);
  EXPECT_EQ(fixed.err, "plc-host: " + path("copy.csv") +
                           ": 1 correction; left to do by hand: 1 error, which plc-host check " + path("copy.csv") +
                           " shows\n");
  EXPECT_EQ(file_text(path("copy.csv")), "Speed,FLOAT,,,,,,0,1,0,0,\n");
}

TEST_F(CheckTest, BlanksThatTellProgramsApart_AreNoCorrection) {
  const std::string text = "Loc,UINT,,,,,,0,0,0,1,Main\nLoc,UINT,,,,,,1,0,0,2,Main \n";
  write_file("PLC1_0.csv", text);
  const Outcome fixed = check({path("PLC1_0.csv"), "--fix", path("copy.csv")});
  EXPECT_EQ(fixed.code, 1);
  EXPECT_EQ(fixed.err, "plc-host: " + path("copy.csv") +
                           ": 0 corrections; left to do by hand: 1 error, which plc-host check " + path("copy.csv") +
                           " shows\n");
  EXPECT_EQ(file_text(path("copy.csv")), text);
}

TEST_F(CheckTest, SecondListOfSubscripts_IsNoHeadingAndIsKept) {
  const std::string text = "Line[1].Pos[2,3],REAL,,,,,,,1,0,0,\nA,INT,,,,,,0,1,0,0,\n";
  write_file("PLC1_0.csv", text);
  const Outcome fixed = check({path("PLC1_0.csv"), "--fix", path("copy.csv")});
  EXPECT_EQ(fixed.code, 1);
  EXPECT_THAT(fixed.err, StartsWith("plc-host: " + path("copy.csv") + ": 0 corrections; left to do by hand: 1 error"));
  EXPECT_EQ(file_text(path("copy.csv")), text);
}

TEST_F(CheckTest, RuleByItsCode_IsShownAlone) {
  const Outcome outcome = check({"--rules", "T042"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out,
            "T042 (error) type not in upper case\n    Type names count only in upper case.\n"
            "    Write the type in upper case.\n");
  EXPECT_EQ(count_of(check({"--rules", "T042", "T001"}).out, " (error) "), 2U);
}

TEST_F(CheckTest, SpreadsheetsOwnFile_IsCalledSo) {
  write_file("tags.xlsx", "PK\3\4...");
  const Outcome outcome = check({path("tags.xlsx"), "--errors-only"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, StartsWith(path("tags.xlsx") + ":1:1: error: this is a spreadsheet's own file [T016]\n" +
                                      "    Save it there as CSV.\n"));
}

TEST_F(CheckTest, CorrectedCopyOfASpreadsheetsOwnFile_IsNotWritten) {
  write_file("tags.xlsx", "PK\3\4...");
  const Outcome outcome = check({path("tags.xlsx"), "--fix", path("copy.csv")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "plc-host: " + path("copy.csv") + ": not written: " + path("tags.xlsx") +
                             " is not a text that can be corrected\n");
  EXPECT_NE(access(path("copy.csv").c_str(), F_OK), 0);
}

TEST_F(CheckTest, CorrectedCopyThatIsNotLoaded_HasAsManyErrorsAsAreShown) {
  write_file("PLC1_0.csv", std::string("Speed\0,INT,,,,,,0,1,0,0,\n", 25));
  const Outcome fixed = check({path("PLC1_0.csv"), "--fix", path("copy.csv")});
  EXPECT_EQ(fixed.code, 1);
  const size_t shown = count_of(check({path("copy.csv")}).out, ": error: ");
  EXPECT_EQ(fixed.err,
            "plc-host: " + path("copy.csv") + ": 0 corrections; left to do by hand: " + std::to_string(shown) +
                (shown == 1 ? " error" : " errors") + ", which plc-host check " + path("copy.csv") + " shows\n");
}

TEST_F(CheckTest, FileThatCannotBeRead_IsToldAndTheOthersAreChecked) {
  write_file("PLC1_0.csv", "Speed,INT,,,,,,0,1,0,0,\n");
  write_file("PLC2_0.csv", "Speed;INT;;;;;;0;1;0;0;\n");
  const Outcome outcome = check({path("PLC1_0.csv"), path("missing.csv"), path("PLC2_0.csv")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.err, "plc-host: cannot read " + path("missing.csv") + ": No such file or directory\n");
  EXPECT_THAT(outcome.out, HasSubstr(path("PLC1_0.csv") + ": the driver reads 1 plain record\n"));
  EXPECT_THAT(outcome.out, HasSubstr(path("PLC2_0.csv") + ":1:6: error: "));
}

TEST_F(CheckTest, CorrectedCopyWhereTheResultsGo_IsRefused) {
  write_file("PLC1_0.csv", "Speed;int;;;;;;0;1;0;0;\n");
  const Outcome outcome = run_words(
      {"/bin/sh", "-c",
       PLC_HOST_PROGRAM " check " + path("PLC1_0.csv") + " --overwrite --fix " + path("copy") + " >" + path("copy")});
  EXPECT_EQ(outcome.code, 8);
  EXPECT_EQ(outcome.err,
            "plc-host: cannot write " + path("copy") + ": standard output goes there too. Try: name another file\n");
  EXPECT_EQ(file_text(path("copy")), "");
}

TEST_F(CheckTest, FileOfAnyName_IsChecked) {
  write_file("list.txt", "Speed,INT,,,,,,0,1,0,0,\n");
  const Outcome outcome = check({path("list.txt"), "--address", "192.168.0.10"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(outcome.out,
            path("list.txt") + ":1:1: warning: the driver does not find a file of the name 'list.txt': it asks for " +
                "PLCC0A8000A_0.csv and the like [T010]\n" +
                "    Rename the panel's file, for example to PLCC0A8000A_0.csv for area 0 of 192.168.0.10. "
                "plc-host accepts any name " +
                "with --tags.\n" + path("list.txt") + ": the driver reads 1 plain record\n");
}

}  // namespace
