// Tests of plc-host where the tag file names a program that the controller does not have.
#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

constexpr char kNoProgram[] =
    "the controller has no program \"Filing\": what answers may be another program's variable";
constexpr char kTry[] = ". Try: Correct column 12 of its line: plc-host check FILE --live names similar programs.";

// Filing has the number of the controller's MAIN.
constexpr char kScopeFile[] =
    "Count,INT,,,,,,0,0,0,1,Filing\n"
    "Speed,INT,,,,,,1,1,0,0,\n"
    "Count,INT,,,,,,2,0,0,1,MAIN\n"
    "Nothing,INT,,,,,,3,0,0,1,Filing\n";

class ScopeTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    write_file("panel.csv", kScopeFile);
    simulator_ = start_simulator();
  }
  // In place of the controller with the usual variables.
  void start_with(const std::string& lines, const std::vector<std::string>& arguments = {}) {
    simulator_->close_input();
    EXPECT_EQ(simulator_->wait(), 0);
    write_file("machine.csv", lines);
    simulator_ = start_simulator(arguments);
  }
  Outcome on_panel(std::vector<std::string> words) {
    words.insert(words.end(), {"--address", "127.0.0.1:" + port_, "--tags", path("panel.csv")});
    return run(words);
  }

  std::unique_ptr<Child> simulator_;
};

// Rows of all four variables, MAIN/Count with 7.
constexpr char kRows[] =
    "name,type,state,time,value,reason\n"
    "Filing/Count,INT,failed,T,,\"the controller has no program \"\"Filing\"\": what answers may be another program's "
    "variable\"\n"
    "Speed,INT,good,T,0,\n"
    "MAIN/Count,INT,good,T,7,\n"
    "Filing/Nothing,INT,failed,T,,\"the controller has no program \"\"Filing\"\": what answers may be another "
    "program's "
    "variable\"\n";

TEST_F(ScopeTest, ReadAndBatch_ShowNoValueOfAnotherProgram) {
  EXPECT_EQ(on_panel({"write", "MAIN/Count=7"}).code, 0);
  const Outcome read = on_panel({"read", "--all", "--csv"});
  EXPECT_EQ(read.code, 1);
  EXPECT_EQ(without_times(read.out), kRows);
  const Outcome batch = on_panel({"batch", "--all", "--csv"});
  EXPECT_EQ(batch.code, 1);
  EXPECT_EQ(without_times(batch.out), kRows);
}

TEST_F(ScopeTest, AllOrNone_IsNoneWhereAProgramIsMissing) {
  const Outcome raw = on_panel({"read", "--raw", "Filing/Count"});
  EXPECT_EQ(raw.code, 1);
  EXPECT_EQ(raw.out, "");
  EXPECT_EQ(raw.err, std::string("plc-host: Filing/Count: ") + kNoProgram + kTry +
                         "\nplc-host: no value is shown: 1 of 1 variable has none\n");
  EXPECT_EQ(on_panel({"read", "--strict", "Filing/Count"}).code, 1);
}

TEST_F(ScopeTest, ReadByNumber_ShowsNoValueOfAnotherProgram) {
  const Outcome outcome = on_panel({"read", "--id", "0"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, StartsWith("Filing/Count #0  INT  failed  "));
  EXPECT_EQ(outcome.err, std::string("plc-host: Filing/Count #0: ") + kNoProgram + kTry + "\n");
}

TEST_F(ScopeTest, Watch_ShowsNoValueOfAnotherProgram) {
  const Outcome outcome =
      on_panel({"watch", "Filing/Count", "MAIN/Count", "--rounds", "2", "--interval", "1", "--csv"});
  EXPECT_THAT(outcome.out, StartsWith("time,state,reason,Filing/Count,MAIN/Count\n"));
  EXPECT_THAT(outcome.out,
              EndsWith(",partial,\"Filing/Count: the controller has no program \"\"Filing\"\": what answers "
                       "may be another program's variable\",,0\n"));
}

TEST_F(ScopeTest, WatchSummary_CountsCallsThatAskedAnotherProgram) {
  const Outcome text = on_panel({"watch", "Filing/Count", "--rounds", "2", "--interval", "1"});
  EXPECT_THAT(text.err, HasSubstr("plc-host: 2 calls, 2 failures, round trip "));
  for (const bool is_batch : {false, true}) {
    std::vector<std::string> words = {"watch", "Filing/Count", "Speed", "--rounds", "2", "--interval", "1", "--json"};
    if (is_batch) words.emplace_back("--batch");
    EXPECT_THAT(on_panel(words).out, HasSubstr(R"({"summary":{"calls":4,"failures":2,)")) << is_batch;
  }
}

TEST_F(ScopeTest, Write_SendsNothingToAnotherProgram) {
  const Outcome outcome = on_panel({"write", "--verify", "Filing/Count=9", "Speed=3", "--csv"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(without_times(outcome.out),
            "name,type,state,time,value,reason\n"
            "Filing/Count,INT,failed,T,,\"the controller has no program \"\"Filing\"\": "
            "what answers may be another program's variable; nothing was written\"\n"
            "Speed,INT,verified,T,3,\n");
  EXPECT_EQ(on_panel({"read", "--raw", "MAIN/Count"}).out, "0\n");
}

TEST_F(ScopeTest, CheckLive_NamesTheProgramAlsoWhereTheNameIsRefused) {
  const std::string file = path("panel.csv");
  const Outcome outcome = run({"check", file, "--live", "--address", "127.0.0.1:" + port_});
  EXPECT_EQ(outcome.code, 1);
  const std::string told = std::string(kNoProgram) +
                           ". Try: Correct column 12 of its line; the controller's programs are MAIN, SUB.\n" + file;
  EXPECT_THAT(outcome.out,
              EndsWith(file + ":1: error: Filing/Count: " + told + ":4: error: Filing/Nothing: " + told +
                       ": 4 names, 127.0.0.1:" + port_ + " has given 2 values, refused 0, failed for 2\n"));
}

// The controller's MAIN is another program than MAIN2: the file declares both.
TEST_F(ScopeTest, ProgramThatBeginsWithAnotherOnesName_IsNeitherReadNorWritten) {
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,1,MAIN2\nCount,INT,,,,,,1,0,0,1,MAIN\n");
  const std::string no_program =
      "the controller has no program \"\"MAIN2\"\": what answers may be another program's variable";
  EXPECT_EQ(on_panel({"write", "MAIN/Count=7"}).code, 0);
  const Outcome write = on_panel({"write", "MAIN2/Count=9", "--csv"});
  EXPECT_EQ(write.code, 1);
  EXPECT_EQ(without_times(write.out), "name,type,state,time,value,reason\nMAIN2/Count,INT,failed,T,,\"" + no_program +
                                          "; nothing was written\"\n");
  for (const char* command : {"read", "batch"}) {
    const Outcome read = on_panel({command, "--all", "--csv"});
    EXPECT_EQ(read.code, 1);
    EXPECT_EQ(without_times(read.out), "name,type,state,time,value,reason\nMAIN2/Count,INT,failed,T,,\"" + no_program +
                                           "\"\nMAIN/Count,INT,good,T,7,\n");
  }
}

TEST_F(ScopeTest, BeginningOfAName_IsTakenOnlyWhereAProfileCutsNamesThere) {
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,1,MAIN2\n");
  EXPECT_EQ(on_panel({"read", "--raw", "MAIN2/Count"}).err,
            "plc-host: MAIN2/Count: the controller has no program \"MAIN2\": what answers may be another program's "
            "variable. Try: The controller has \"MAIN\". If that is this program, its name cut short, write it so in "
            "column 12; else correct column 12.\n"
            "plc-host: no value is shown: 1 of 1 variable has none\n");
  EXPECT_EQ(on_panel({"write", "MAIN2/Count=9"}).code, 1);
  for (const auto& [key, state] : {std::pair("name_units = 20", "failed"), std::pair("longest_units = 9", "failed"),
                                   std::pair("name_units = 4", "good")}) {
    write_file("press1.toml", std::string("[directory]\n") + key + "\n");
    EXPECT_THAT(on_panel({"read", "MAIN2/Count", "--profile", path("press1.toml")}).out,
                StartsWith(std::string("MAIN2/Count  INT  ") + state + "  "))
        << key;
  }
}

// Of each the other one would be proof that names are cut at this length.
TEST_F(ScopeTest, TwoBeginningsOfOneLength_AreNeitherReadNorWritten) {
  start_with("Count,INT,,,,,,0,0,0,1,MAIN\nCount,INT,,,,,,1,0,0,2,SUBS\n");
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,1,MAIN2\nCount,INT,,,,,,1,0,0,1,SUBS2\n");
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"read", "--all"}, {"batch", "--all"}, {"write", "MAIN2/Count=9", "SUBS2/Count=9"}}) {
    const Outcome outcome = on_panel(command);
    EXPECT_EQ(outcome.code, 1);
    EXPECT_THAT(outcome.out, HasSubstr("MAIN2/Count  INT  failed")) << command.front();
    EXPECT_THAT(outcome.out, HasSubstr("SUBS2/Count  INT  failed")) << command.front();
  }
}

// The driver itself takes none of two beginnings, and says so of single reads alone.
TEST_F(ScopeTest, ProgramWithTwoBeginnings_IsMissingToAllCommands) {
  start_with("Count,INT,,,,,,0,0,0,1,MAIN\nCount,INT,,,,,,1,0,0,2,MAIN2\n");
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,1,MAIN22\nCount,INT,,,,,,1,0,0,2,MAIN2\n");
  const std::string words =
      "MAIN22/Count: the controller has no program \"MAIN22\": what answers may be another "
      "program's variable";
  for (const char* command : {"read", "batch"}) {
    EXPECT_EQ(on_panel({command, "MAIN22/Count"}).err, "plc-host: " + words + kTry + "\n") << command;
  }
  EXPECT_EQ(on_panel({"read", "--id", "0"}).err, "plc-host: MAIN22/Count #0" + words.substr(12) + kTry + "\n");
  EXPECT_THAT(on_panel({"watch", "MAIN22/Count", "--rounds", "1", "--csv"}).out, HasSubstr(",failed,\"MAIN22/Count: "));
  EXPECT_EQ(on_panel({"write", "MAIN22/Count=9"}).err, "plc-host: " + words + "; nothing was written" + kTry + "\n");
  const Outcome live = run({"check", path("panel.csv"), "--live", "--address", "127.0.0.1:" + port_});
  EXPECT_EQ(live.code, 1);
  EXPECT_THAT(live.out, HasSubstr(":1: error: " + words + "; did you mean MAIN2 or MAIN? Try: Correct column 12"));
}

TEST_F(ScopeTest, BlankBehindTheNameOfAProgram_IsNamed) {
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,1,MAIN \n");
  EXPECT_EQ(on_panel({"read", "--raw", "MAIN /Count"}).err,
            "plc-host: 'MAIN /Count': the controller has no program \"MAIN \": what answers may be another program's "
            "variable. Try: Remove the blanks at the end of column 12 of its line: the controller has \"MAIN\".\n"
            "plc-host: no value is shown: 1 of 1 variable has none\n");
}

TEST_F(ScopeTest, LineWithoutAProgram_GoesByItsNumberAndIsAWarning) {
  start_with("Count,INT,,,,,,0,0,0,3,\n");
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,3,\n");
  EXPECT_EQ(on_panel({"read", "--all", "--raw"}).out, "0\n");
  const std::vector<std::string> check = {"check", path("panel.csv"), "--live", "--address", "127.0.0.1:" + port_};
  const Outcome outcome = run(check);
  const std::string file = path("panel.csv");
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(outcome.out,
              EndsWith(file +
                       ":1: warning: /Count: a local variable without a program: it goes by the number 3 of "
                       "column 11, whosever that is. Try: Write the program's name in column 12 of its line, or "
                       "make the variable global.\n" +
                       file + ": 1 name, 127.0.0.1:" + port_ + " has given 1 value, refused 0\n"));
}

// The driver drops what is none of its own; so does whoever reads the directory from the traffic.
TEST_F(ScopeTest, ReplyToAnotherRequestBeforeTheDirectory_AccusesNobody) {
  const std::string lines = "Count,INT,,,,,,0,0,0,1,MAIN\n";
  const std::string file = path("panel.csv");
  write_file("panel.csv", lines);
  start_with(lines, {"--fault=foreign on=directory"});
  const Outcome live = run({"check", file, "--live", "--address", "127.0.0.1:" + port_});
  EXPECT_EQ(live.code, 0) << live.out;
  EXPECT_THAT(live.out, EndsWith(": the driver reads 1 plain record\n" + file + ": 1 name, 127.0.0.1:" + port_ +
                                 " has given 1 value, refused 0\n"));
  start_with(lines, {"--fault=foreign on=directory"});
  const Outcome why = on_panel({"why", "MAIN/Count"});
  EXPECT_EQ(why.code, 0) << why.out;
  EXPECT_THAT(why.out, HasSubstr("\ndirectory   1 \"MAIN\"\n"));
  EXPECT_THAT(why.out, HasSubstr("\nWhat went wrong\n  nothing\n"));
}

// The contract build takes any answer for the right one, and says so.
TEST_F(ScopeTest, ContractBuild_CannotTell) {
  const Outcome outcome = on_panel({"read", "Filing/Count", "--driver", PLC_HOST_LIBRARY});
  EXPECT_THAT(outcome.out, StartsWith("Filing/Count  INT  unguarded  "));
}

}  // namespace
