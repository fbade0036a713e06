// Tests of plc-host check --live: a tag file compared with what a controller answers.
#include "tests/tools/plc_host/program_fixture.h"
#include "tests/tools/plc_host/terminal.h"

namespace {

using namespace plc_host_test;

// Beside the tags of the controller: a slip, a name of nobody, a type that is not read, and a program of another name.
constexpr char kLiveFile[] =
    "Speed,INT,,,,,,0,1,0,0,\n"
    "Totel,DINT,,,,,,1,1,0,0,\n"
    "Total,DINT,,,,,,2,1,0,0,\n"
    "Zzzzzz,INT,,,,,,3,1,0,0,\n"
    "Table,INT,[0..9],,,,,4,1,0,0,\n"
    "Byte,BYTE,,,,,,5,1,0,0,\n"
    "Count,INT,,,,,,6,0,0,1,MIAN\n"
    "Flags,BOOL,[0..7],,,,,7,0,0,2,SUB\n";

class LiveTest : public ProgramTest {
 protected:
  Outcome check(const std::vector<std::string>& more, const std::string& file = "panel.csv") {
    std::vector<std::string> words = {"check", path(file), "--live", "--address", "127.0.0.1:" + port_};
    words.insert(words.end(), more.begin(), more.end());
    return run(words);
  }
};

TEST_F(LiveTest, EachName_IsAskedForAndWhatIsWrongListedWithNearNames) {
  write_file("panel.csv", kLiveFile);
  auto simulator = start_simulator();
  const Outcome outcome = check({});
  const std::string file = path("panel.csv");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_THAT(
      outcome.out,
      EndsWith(file + ":2: error: Totel: the controller refused the name, status 0004 (3); did you mean Total?\n" +
               file + ":4: error: Zzzzzz: the controller refused the name, status 0004 (3)\n" + file +
               ":6: warning: Byte: the driver transfers no 8-bit values\n" + file +
               ":7: error: MIAN/Count: the controller has no program \"MIAN\": what answers may be another "
               "program's variable; did you mean MAIN? Try: Correct column 12 of its line.\n" +
               file + ": 8 names, 127.0.0.1:" + port_ +
               " has given 4 values, refused 2, failed for 1; 1 cannot be asked for\n"));
}

TEST_F(LiveTest, Json_HasAnObjectForEachFindingAndTheFigures) {
  write_file("panel.csv", kLiveFile);
  auto simulator = start_simulator();
  const Outcome outcome = check({"--json"});
  const std::string file = "{\"file\":\"" + path("panel.csv") + "\",";
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(file + R"("line":2,"severity":"error","name":"Totel","state":"refused",)"
                                            R"x("reason":"the controller refused the name, status 0004 (3)",)x"
                                            R"("near":["Total"]})"
                                            "\n"));
  EXPECT_THAT(outcome.out, HasSubstr(R"("name":"MIAN/Count","state":"scope",)"));
  EXPECT_THAT(
      outcome.out,
      EndsWith(file + R"("live":{"controller":"127.0.0.1:)" + port_ +
               R"(","names":8,"answered":4,"refused":2,"failed":1,"impossible":1,"unanswered":[],"not_asked":0}})"
               "\n"));
}

TEST_F(LiveTest, FileOfTheController_EndsWithoutFindings) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nGrid,DINT,[0..2_0..4],,,,,1,1,0,0,\n");
  auto simulator = start_simulator();
  const Outcome outcome = check({});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, EndsWith(": 2 names, 127.0.0.1:" + port_ + " has given 2 values, refused 0\n"));
}

TEST_F(LiveTest, SimulatedController_IsStartedAndEnded) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nTotel,DINT,,,,,,1,1,0,0,\n");
  setenv("PLC_HOST_ADDRESS", "192.0.2.1", 1);
  const Outcome outcome =
      run({"check", path("panel.csv"), "--live", "--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR});
  unsetenv("PLC_HOST_ADDRESS");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "plc-sim: refused: no variable Totel\n") << "what the simulator says";
  EXPECT_THAT(outcome.out, HasSubstr("panel.csv:2: error: Totel: the controller refused the name, status 0004 (3)\n"));
  EXPECT_THAT(outcome.out, HasSubstr(": 2 names, 127.0.0.1:"));
  EXPECT_THAT(outcome.out, EndsWith(" has given 1 value, refused 1\n"));
  const Outcome both = check({"--sim", path("machine.csv")});
  EXPECT_EQ(both.code, 2);
  EXPECT_EQ(both.err, "plc-host: --address and --sim exclude each other\n");
}

TEST_F(LiveTest, Terminal_ShowsHowFarItIsAndKeepsNothingOfIt) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\n");
  Terminal terminal(host_words(
      {"check", path("panel.csv"), "--live", "--sim", path("machine.csv"), "--simulator", PLC_HOST_SIMULATOR}));
  EXPECT_TRUE(terminal.shows("\r\033[Kplc-host: 1 of 1 name asked for\r\033[K")) << terminal.shown();
  EXPECT_TRUE(terminal.shows(" has given 1 value, refused 0\r\n")) << terminal.shown();
  EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(LiveTest, DeadController_EndsWithOneMessage) {
  write_file("panel.csv", kLiveFile);
  const Outcome outcome = check({});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err, StartsWith("plc-host: refused: nothing listens on 127.0.0.1:" + port_ + " (2). Try: "));
  EXPECT_EQ(count_of(outcome.err, "\n"), 1U);
  EXPECT_THAT(outcome.out,
              EndsWith(": 8 names, 127.0.0.1:" + port_ + " has given 0 values, refused 0; 8 not asked for\n"));
}

TEST_F(LiveTest, ControllerThatFallsSilent_IsToldWithTheNameItHadBeenAskedFor) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nTotal,DINT,,,,,,1,1,0,0,\nTemp,REAL,,,,,,2,1,0,0,\n");
  const auto silent = start_simulator({"--fault=no-reply on=read after=1"});
  const Outcome outcome = check({"--timeout", "1"});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err, StartsWith("plc-host: Total: 127.0.0.1:" + port_ + ": no answer within 1 s (3). Try: "));
  EXPECT_THAT(outcome.out, EndsWith(" has given 1 value, refused 0; no answer for Total; 1 not asked for\n"));
}

TEST_F(LiveTest, OtherProtocol_IsNotSaidToGiveNoAnswer) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nTotal,DINT,,,,,,1,1,0,0,\n");
  const auto other = start_simulator({"--fault=garbage on=read times=always"});
  const Outcome outcome = check({"--timeout", "1"});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err, HasSubstr("what answers there does not speak this protocol (3)"));
  EXPECT_THAT(outcome.out, HasSubstr(" has given 0 values, refused 0; no valid reply for Speed"));
}

TEST_F(LiveTest, ConnectionThatIsLostTwice_NamesBoth) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nTotal,DINT,,,,,,1,1,0,0,\nTemp,REAL,,,,,,2,1,0,0,\n");
  const auto closing = start_simulator({"--fault=close on=read times=2"});
  const Outcome outcome = check({"--json"});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err, StartsWith("plc-host: Total: 127.0.0.1:" + port_ + ": the controller closed the "));
  EXPECT_THAT(outcome.out, EndsWith(R"("impossible":0,"unanswered":["Speed","Total"],"not_asked":1}})"
                                    "\n"));
}

TEST_F(LiveTest, Profile_GivesItsSettings) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\n");
  write_file("quick.toml", "[settings]\ntimeout_s = 1\n");
  const auto silent = start_simulator({"--fault=no-reply on=read"});
  const Outcome outcome = check({"--profile", path("quick.toml")});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err, StartsWith("plc-host: Speed: 127.0.0.1:" + port_ + ": no answer within 1 s (3). Try: "));
  const Outcome without = run({"check", path("panel.csv"), "--profile", path("quick.toml")});
  EXPECT_EQ(without.code, 2);
  EXPECT_EQ(without.err, "plc-host: --profile requires --live; plc-host check --help tells more\n");
}

TEST_F(LiveTest, TypeThatDoesNotFit_IsToldWithoutAnotherName) {
  write_file("panel.csv", "Total,LREAL,,,,,,0,1,0,0,\nTable,INT,[0..9],,,,,1,1,0,0,\n");
  auto simulator = start_simulator();
  const Outcome outcome = check({});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(path("panel.csv") +
                                     ":1: error: Total: the controller took the name and refused to read it as LREAL, "
                                     "status 0013 (3). Try: The type in the tag file does not fit the variable: "
                                     "compare it with the controller's declaration.\n"));
  EXPECT_THAT(check({"--json"}).out,
              HasSubstr(R"("near":[],"try":"The type in the tag file does not fit the variable: compare it with the )"
                        R"(controller's declaration."})"));
}

TEST_F(LiveTest, FileWithoutATypeInAnyLine_IsToBeRepairedFirst) {
  write_file("panel.csv", "Speed;INT;;;;;;0;1;0;0;\nTotal;DINT;;;;;;1;1;0;0;\n");
  auto simulator = start_simulator();
  const Outcome outcome = check({});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "plc-host: --live asks for nothing: " + path("panel.csv") +
                             ": none of its lines has a type. Try: plc-host check " + path("panel.csv") + "\n");
  EXPECT_THAT(outcome.out, Not(HasSubstr("refused")));
}

TEST_F(LiveTest, TypeWithoutAWidth_IsNoValue) {
  write_file("dates.csv", "Speed,INT,,,,,,0,1,0,0,\nDay,DATE,,,,,,1,1,0,0,\n");
  const Outcome outcome =
      run({"check", path("dates.csv"), "--live", "--sim", path("dates.csv"), "--simulator", PLC_HOST_SIMULATOR});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out,
              HasSubstr(path("dates.csv") + ":2: error: Day: the driver stores a value of this type up to its first "
                                            "zero byte, and what follows is not known; stored: nothing. Try: "));
  EXPECT_THAT(outcome.out, EndsWith(" has given 1 value, refused 0, failed for 1\n"));
}

// Where the controller refuses no name, one that it took can be a slip.
TEST_F(LiveTest, TypeThatDoesNotFit_HasNearNamesUnlessTheControllerRefusesNames) {
  write_file("panel.csv", "Total,LREAL,,,,,,0,1,0,0,\nTotal1,DINT,,,,,,1,1,0,0,\n");
  write_file("machine.csv", "Total,DINT,,,,,,0,1,0,0,\nTotal1,DINT,,,,,,1,1,0,0,\n");
  auto simulator = start_simulator();
  EXPECT_THAT(check({}).out, HasSubstr("refused to read it as LREAL, status 0013 (3); did you mean Total1? Try: The "));
  write_file("panel.csv", "Total,LREAL,,,,,,0,1,0,0,\nTotal1,DINT,,,,,,1,1,0,0,\nZzzzzz,INT,,,,,,2,1,0,0,\n");
  EXPECT_THAT(check({}).out, HasSubstr("refused to read it as LREAL, status 0013 (3). Try: The "));
}

TEST_F(LiveTest, RefusedDirectory_BlamesNoLine) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\nTotal,DINT,,,,,,1,1,0,0,\n");
  const auto refusing = start_simulator({"--fault=status 1 on=directory times=always"});
  const Outcome outcome = check({});
  const std::string controller = "127.0.0.1:" + port_;
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(outcome.err,
            "plc-host: " + controller +
                ": the controller refused its directory of programs, status 0001 (2). Try: Check that this "
                "is the controller's host link port, and that no password or mode of it stands before "
                "it.\n");
  EXPECT_THAT(outcome.out, Not(HasSubstr("panel.csv:1: ")));
  EXPECT_THAT(outcome.out, EndsWith(": 2 names, " + controller + " has given 0 values, refused 0; 2 not asked for\n"));
}

TEST_F(LiveTest, DirectoryThatIsRefusedOnce_IsAskedForAgain) {
  write_file("panel.csv", "Speed,INT,,,,,,0,1,0,0,\n");
  const auto refusing = start_simulator({"--fault=status 1 on=directory times=1"});
  const Outcome outcome = check({});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, EndsWith(" has given 1 value, refused 0\n"));
}

TEST_F(LiveTest, TextBeyondTheReachOfReads_IsToldWithTheWayToReadIt) {
  write_file("machine.csv", "Story,STRING,,2000,,,,0,1,0,0,\n");
  auto simulator = start_simulator();
  const std::string address = "127.0.0.1:" + port_;
  const Outcome written =
      run({"write", "--address", address, "--tags", path("machine.csv"), "Story=" + std::string(2000, 'x')});
  ASSERT_EQ(written.code, 0) << written.err;
  const Outcome outcome = check({}, "machine.csv");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out,
              HasSubstr(":1: error: Story: reads reach the first 1530 bytes of the text, and it goes on behind them. "
                        "Try: Keep the text shorter in the controller, or read it in a batch (plc-host: batch).\n"));
  EXPECT_EQ(run({"batch", "--raw", "--address", address, "--tags", path("machine.csv"), "Story"}).out.size(), 2001U);
}

TEST_F(LiveTest, ProgramOfNoSimilarName_IsToldWithThoseOfTheController) {
  write_file("panel.csv", "Count,INT,,,,,,0,0,0,1,Packing\n");
  auto simulator = start_simulator();
  EXPECT_THAT(check({}).out, HasSubstr("another program's variable. Try: Correct column 12 of its line; the "
                                       "controller's programs are MAIN, SUB.\n"));
}

TEST_F(LiveTest, FileOfAnotherArea_IsSaid) {
  write_file("PLC7F000001_0.csv", "Speed,INT,,,,,,0,1,0,0,\n");
  auto simulator = start_simulator();
  const std::string file = path("PLC7F000001_0.csv");
  EXPECT_EQ(check({"--area", "2"}, "PLC7F000001_0.csv").err,
            "plc-host: " + file +
                " is named like a tag file of area 0, --area says 2. A panel takes PLC7F000001_2.csv for area 2. Try: "
                "--area 0, or rename the file\n");
  EXPECT_EQ(check({"--area", "2", "--quiet"}, "PLC7F000001_0.csv").err, "");
  EXPECT_EQ(check({"--area", "0"}, "PLC7F000001_0.csv").err, "");
  EXPECT_EQ(check({}, "PLC7F000001_0.csv").err, "");
}

// Nobody listens: an end with 0 would be a success that nobody saw.
TEST_F(LiveTest, FileOfNamesThatCannotBeAskedFor_IsNoSuccess) {
  write_file("panel.csv", "A,INT,[0..2147483647],,,,,0,1,0,0,\n");
  const Outcome outcome = check({});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(outcome.err, "plc-host: 127.0.0.1:" + port_ + ": not asked: the driver can ask for none of the names\n");
  EXPECT_THAT(outcome.out, HasSubstr(" has given 0 values, refused 0; 1 cannot be asked for\n"));
}

TEST_F(LiveTest, NothingIsWritten) {
  write_file("panel.csv", kLiveFile);
  auto simulator = start_simulator({"--sentinel"});
  const std::vector<std::string> read = {
      "read", "--raw", "Speed", "Table", "--address", "127.0.0.1:" + port_, "--tags", path("machine.csv")};
  const std::string before = run(read).out;
  check({});
  EXPECT_EQ(run(read).out, before);
}

TEST_F(LiveTest, WhatCannotBeDone_IsSaid) {
  write_file("panel.csv", kLiveFile);
  EXPECT_EQ(run({"check", path("panel.csv"), "--live"}).out, "");
  EXPECT_EQ(run({"check", path("panel.csv"), "--live"}).err,
            "plc-host: which controller? --live needs --address HOST, or --sim TAGFILE for a simulated one\n");
  EXPECT_EQ(run({"check", path("panel.csv"), "--port", "8500"}).code, 2);
  EXPECT_EQ(check({path("panel.csv")}).err, "plc-host: --live goes with one tag file\n");
  EXPECT_EQ(check({"--sarif"}).code, 2);
  library_ = PLC_HOST_LIBRARY;
  const Outcome contract = check({"--quiet"});
  EXPECT_EQ(contract.code, 3);
  const std::string needed = "plc-host: --live needs the guarded build: the contract build takes refusals for values; ";
  EXPECT_EQ(contract.err, needed + "--driver chose " PLC_HOST_LIBRARY ". Try: --driver guarded\n");
  const std::string command =
      std::string("exec " PLC_HOST_PROGRAM " check --live ") + path("panel.csv") + " --address 127.0.0.1 --quiet";
  const Outcome environment = run_words({"/bin/sh", "-c", "PLC_HOST_DRIVER=contract " + command});
  EXPECT_EQ(environment.code, 3);
  EXPECT_EQ(environment.err, needed + "PLC_HOST_DRIVER chose contract. Try: --driver guarded\n");
  write_file("plc-host.toml", "driver = \"contract\"\n");
  const Outcome settings = run_words({"/bin/sh", "-c", "cd " + folder_.path() + " && " + command});
  EXPECT_EQ(settings.code, 3);
  EXPECT_EQ(settings.err, needed + "plc-host.toml:1 chose contract. Try: --driver guarded\n");
}

}  // namespace
