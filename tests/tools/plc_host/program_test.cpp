// Tests of plc-host as a program, with the real driver library and the real simulator.
#include <pty.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <set>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;

TEST_F(ProgramTest, Info_ShowsWhatTheDriverSays) {
  const Outcome outcome = run({"info", "--json"});
  EXPECT_EQ(outcome.code, 0);
  const nlohmann::json info = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(info["driver_code"], 722);
  EXPECT_EQ(info["driver_param"], 1);
}

TEST_F(ProgramTest, Tags_ShowsHowAHostAsksForEachRecord) {
  const Outcome outcome = run({"tags", path("machine.csv"), "--json"});
  EXPECT_EQ(outcome.code, 0);
  const std::vector<std::string> lines = lines_of(outcome.out);
  ASSERT_EQ(lines.size(), 25U);
  EXPECT_EQ(lines[9],
            "{\"name\":\"Grid\",\"id\":9,\"reg_type\":0,\"address\":589824,\"type\":\"DINT\",\"shape\":\"array2\","
            "\"bounds\":[[0,2],[0,4]],\"global\":true,\"device\":\"DM\"}");
  EXPECT_EQ(nlohmann::json::parse(lines[23])["reg_type"], 4);
  EXPECT_TRUE(nlohmann::json::parse(lines[24])["id"].is_null());
}

TEST_F(ProgramTest, TagsNames_AreThoseThatCanBeAskedFor) {
  const std::vector<std::string> names = lines_of(run({"tags", path("machine.csv"), "--names"}).out);
  ASSERT_EQ(names.size(), 24U);
  EXPECT_EQ(names[19], "MAIN/Count");
  EXPECT_EQ(names[23], "Idx1");
}

// The words of a help text that start like this, such as "--json".
std::set<std::string> words_starting(const std::string& text, const std::string& start) {
  std::set<std::string> words;
  for (const std::string& line : lines_of(text)) {
    // Options stand at the left; deeper lines are explanations and examples.
    if (line.compare(0, 2, "  ") != 0 || line.size() < 3 || line[2] != '-') continue;
    const size_t at = line.find(start);
    if (at != std::string::npos) words.insert(line.substr(at, line.find_first_of(" :", at) - at));
  }
  return words;
}

TEST_F(ProgramTest, Completion_KnowsEveryOptionOfEveryCommand) {
  write_file("complete.bash", ". " PLC_HOST_COMPLETION
                              "\n"
                              "COMP_WORDS=(plc-host \"$1\" --); COMP_CWORD=2; _plc_host; echo \"${COMPREPLY[*]} \"\n"
                              "COMP_WORDS=(plc-host \"\"); COMP_CWORD=1; _plc_host; echo \"${COMPREPLY[*]} \"\n");
  const std::string help = run({"--help"}).out;
  const std::string commands =
      help.substr(help.find("Subcommands:"), help.find("Examples:") - help.find("Subcommands:"));
  size_t checked = 0;
  for (const std::string& line : lines_of(commands)) {
    if (line.size() < 3 || line[0] != ' ' || line[2] == ' ') continue;
    const std::string command = line.substr(2, line.find(' ', 2) - 2);
    Child child({"/bin/bash", path("complete.bash"), command}, path("offered"), path("err"));
    ASSERT_EQ(child.wait(), 0);
    const std::vector<std::string> offered = lines_of(file_text(path("offered")));
    for (const std::string& option : words_starting(run({command, "--help"}).out, "--")) {
      EXPECT_THAT(" " + offered.at(0), HasSubstr(" " + option + " ")) << command << " " << option;
      ++checked;
    }
    EXPECT_THAT(" " + offered.at(1), HasSubstr(" " + command + " ")) << command;
  }
  EXPECT_GT(checked, 50U);
}

TEST_F(ProgramTest, Completion_OffersCommandsOptionsAndVariables) {
  write_file("complete.bash",
             "plc-host() { " PLC_HOST_PROGRAM " \"$@\" --library " PLC_HOST_LIBRARY
             "; }\n"
             ". " PLC_HOST_COMPLETION
             "\n"
             "offer() { COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _plc_host; echo \"${COMPREPLY[*]}\"; }\n"
             "offer plc-host wa\n"
             "offer plc-host watch --ch\n"
             "offer plc-host read --sim " +
                 path("machine.csv") +
                 " Sp\n"
                 "offer plc-host read --sim " +
                 path("mach") +
                 "\n"
                 "offer plc-host read --sim " +
                 path("missing.csv") +
                 " Sp\n"
                 "cd " +
                 folder_.path() +
                 "\n"
                 "offer plc-host read --address 192.168.0.10 : 8500 --area 1 He\n"
                 "offer plc-host read He\n"
                 "PLC_HOST_ADDRESS=192.168.0.10 PLC_HOST_AREA=1 offer plc-host write He\n"
                 "offer plc-host read --driver gua\n"
                 "offer plc-host help wat\n"
                 "echo 'tags = \"machine.csv\"' > plc-host.toml\n"
                 "offer plc-host watch Sp\n");
  write_file("PLCC0A8000A_1.csv", "Here,INT,,,,,,0,1,0,0,\n");
  Child child({"/bin/bash", path("complete.bash")}, path("out"), path("err"));
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(file_text(path("err")), "");
  EXPECT_EQ(file_text(path("out")),
            "watch\n--chart\nSpeed\n" + path("machine.csv") + "\n\nHere\n\nHere\nguarded\nwatch\nSpeed\n");
}

// The rows of a table without their states and times: name, type and value.
std::vector<std::string> values_in(const std::string& out) {
  std::vector<std::string> values;
  for (const std::string& line : lines_of(out)) {
    const size_t time = line.find_first_of("0123456789", line.find("  ", line.find(' ')));
    const size_t colon = line.find(':', time);
    values.push_back(line.substr(0, line.find(' ')) + line.substr(line.find("  ", colon)));
  }
  return values;
}

// With either build of the driver.
class BothBuildsTest : public ProgramTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    library_ = GetParam();
  }
  std::string good() const { return library_ == PLC_HOST_GUARDED ? "  good " : "  unguarded "; }
};

INSTANTIATE_TEST_SUITE_P(Builds, BothBuildsTest, testing::Values(PLC_HOST_LIBRARY, PLC_HOST_GUARDED),
                         [](const auto& instance) { return instance.index == 0 ? "contract" : "guarded"; });

TEST_P(BothBuildsTest, ReadAll_ShowsEveryVariableAndSaysWhatCannotBe) {
  const Outcome outcome = run_on_simulator({"read", "--all", "--quiet"}, {"--sentinel"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(lines_of(outcome.out).size(), 25U);
  EXPECT_EQ(count_of(outcome.out, good()), 22U) << outcome.out;
  EXPECT_EQ(count_of(outcome.out, "  impossible "), 2U) << outcome.out;
  // The 8-bit variable, for which the controller sends no values.
  EXPECT_EQ(count_of(outcome.out, library_ == PLC_HOST_GUARDED ? "  incomplete " : "  failed "), 1U) << outcome.out;
  EXPECT_EQ(count_of(outcome.err, "plc-host: "), 3U) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: Odd: no offset makes the driver read Odd[1,2]"));
}

TEST_P(BothBuildsTest, BatchAll_GivesTheValuesOfSingleReads) {
  const Outcome read = run_on_simulator({"read", "--all", "--quiet"}, {"--sentinel"});
  const Outcome batch = run_on_simulator({"batch", "--all", "--quiet"}, {"--sentinel"});
  EXPECT_EQ(values_in(batch.out), values_in(read.out));
  EXPECT_EQ(count_of(batch.out, good()), 22U) << batch.out;
  EXPECT_EQ(batch.code, 1);
}

TEST_F(ProgramTest, DriverLines_AreShownWhenAskedFor) {
  EXPECT_EQ(run_on_simulator({"read", "Speed"}).err, "");
  EXPECT_EQ(run_on_simulator({"read", "Speed", "--quiet"}).err, "");
  EXPECT_EQ(run_on_simulator({"read", "Speed", "-v"}).err,
            "driver: ev_plc_init ok\n"
            "driver: build tag table for PLC7F000001_0.csv\n"
            "driver: server ip = 127.0.0.1\n");
  EXPECT_EQ(run_on_simulator({"read", "Speed", "-v", "-q"}).code, 2);
}

TEST_F(ProgramTest, Frames_AreShownBehindTheDriversLines) {
  const Outcome outcome = run_on_simulator({"write", "Speed=258", "-vv"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, testing::ContainsRegex("^Speed  INT   *written .* 258\n$"));
  const std::vector<std::string> lines = lines_of(outcome.err);
  EXPECT_EQ(lines.size(), 3U + 8U) << outcome.err;
  EXPECT_THAT(lines.at(3), StartsWith("wire: sent "));
  EXPECT_THAT(lines.at(4), StartsWith("wire: received "));
  EXPECT_THAT(lines.at(9), EndsWith(" 00 01 02")) << outcome.err;
}

TEST_F(ProgramTest, FramesOfAControllerThatIsAway_CannotBeShown) {
  const Outcome outcome =
      run({"read", "Speed", "-vv", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.err,
              HasSubstr("plc-host: 127.0.0.1:" + port_ + ": frames cannot be shown: Connection refused\n"));
}

TEST_F(ProgramTest, FailureBehindTheRecordingRelay_NamesTheController) {
  const std::unique_ptr<Child> simulator = start_simulator({"--fault=close on=read"});
  const Outcome outcome =
      run({"read", "Speed", "-vv", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
  EXPECT_THAT(outcome.err, HasSubstr("wire: the controller closed the connection\n"));
  EXPECT_THAT(outcome.err,
              HasSubstr("plc-host: Speed: 127.0.0.1:" + port_ + ": the controller closed the connection (3)"));
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
}

TEST_F(ProgramTest, ReadByNumber_CountsAsTheDriverDoes) {
  const Outcome table =
      run_on_simulator({"read", "--id", "8", "--offset", "2", "--count", "3", "--json"}, {"--sentinel"});
  const Outcome named = run_on_simulator({"read", "Table[2..4]", "--json"}, {"--sentinel"});
  EXPECT_EQ(table.code, 0);
  EXPECT_EQ(nlohmann::json::parse(table.out)["value"], nlohmann::json::parse(named.out)["value"]);
  const Outcome wide = run_on_simulator({"read", "--id", "3", "--count", "2", "--json"}, {"--sentinel"});
  EXPECT_TRUE(nlohmann::json::parse(wide.out)["value"].is_number());
}

TEST_F(ProgramTest, OtherArea_HasItsOwnNameOfTheTagFile) {
  const Outcome outcome = run_on_simulator({"read", "Speed", "--area", "12", "-v"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.err, HasSubstr("driver: build tag table for PLC7F000001_12.csv\n"));
}

TEST_F(ProgramTest, VerifyOfWhatNoReadReaches_IsRefusedBeforeAnythingIsSent) {
  const Outcome outcome = run_on_simulator({"write", "--verify", "Speed=1", "Odd[1,2]=1"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr("Odd[1,2]  -    impossible "));
  EXPECT_THAT(outcome.out, HasSubstr("Speed     INT  not-written "));
  EXPECT_THAT(outcome.err,
              HasSubstr("plc-host: Odd[1,2]: --verify cannot read it back: no offset makes the driver read Odd[1,2]: "
                        "its rule for INT[1..3,2..5] names other elements. Try: without --verify\n"));
  EXPECT_THAT(outcome.err, EndsWith("plc-host: nothing was written\n"));
  EXPECT_EQ(run_on_simulator({"write", "Odd[1,2]=1"}).code, 0);
}

TEST_P(BothBuildsTest, Write_IsReadBackForEveryKindOfVariable) {
  const Outcome outcome = run_on_simulator({"write",
                                            "--verify",
                                            "Ready=on",
                                            "Speed=-5",
                                            "Total=-2147483648",
                                            "Big=-9223372036854775808",
                                            "Temp=1.5",
                                            "Exact=-2.25e10",
                                            "Mask=0xBEEF",
                                            "Text=pump 3",
                                            "Table=[0,1,2,3,4,5,6,7,8,9]",
                                            "Table[3..4]=[77,78]",
                                            "Grid[1,0..4]=[9,8,7,6,5]",
                                            "Cube[1,2,0..1]=[0.5,0.25]",
                                            "Longs=[1,-2,3,-4,5]",
                                            "Bits=[1,1,1,1,0,0,0,0,1,0,1,0,1,0,1,0]",
                                            "EmBits=[0,0,0,0,1,1,1,1,1,0,1,0,1,0,1,0]",
                                            "Motor.Run=true",
                                            "Line[2].On=true",
                                            "Grid1=[[1,2,3,4],[5,6,7,8],[9,10,11,12]]",
                                            "MAIN/Count=3",
                                            "Flags=[1,0,1,0,1,0,1,1]",
                                            "Long=" + std::string(599, 'x'),
                                            "Idx0=1",
                                            "Idx1=2.5"},
                                           {"--sentinel"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_EQ(lines_of(outcome.out).size(), 23U);
  EXPECT_THAT(outcome.out, HasSubstr("Table[3..4]"));
}

TEST_F(ProgramTest, WriteWithOneBadValue_WritesNothing) {
  const std::unique_ptr<Child> simulator = start_simulator();
  const std::vector<std::string> target = {"--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")};
  std::vector<std::string> words = {"write", "Speed=7", "Total=nine", "Nothing=1", "Byte=1"};
  words.insert(words.end(), target.begin(), target.end());
  const Outcome outcome = run(words);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(count_of(outcome.err, "plc-host: "), 5U) << outcome.err;
  words = {"read", "Speed", "--json"};
  words.insert(words.end(), target.begin(), target.end());
  EXPECT_EQ(nlohmann::json::parse(run(words).out)["value"], 0);
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
}

TEST_F(ProgramTest, WriteThatReadsBackDifferent_HasACodeOfItsOwn) {
  // The simulator moves every value once a millisecond.
  const Outcome outcome =
      run_on_simulator({"write", "--verify", "--delay", "100", "Speed=-12345"}, {"--animate", "--animate-ms=1"});
  EXPECT_EQ(outcome.code, 5);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: Speed: wrote -12345, read back "));
}

TEST_F(ProgramTest, NobodyListening_IsACodeOfItsOwn) {
  std::unique_ptr<Child> simulator = start_simulator();
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
  const Outcome outcome =
      run({"read", "Speed", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv"), "--json"});
  EXPECT_EQ(outcome.code, 7);
  const nlohmann::json result = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(result["code"], 2);
  EXPECT_EQ(result["state"], "no-connection");
}

TEST_F(ProgramTest, ReplyThatNeverComes_FailsWithTheDriversLine) {
  const Outcome outcome =
      run_on_simulator({"read", "Speed", "Total", "--timeout", "1", "-v"}, {"--fault", "no-reply on=read"});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(count_of(outcome.err, "driver: --timeout--"), 1U) << outcome.err;
  EXPECT_EQ(lines_of(outcome.out).size(), 2U);
}

TEST_F(ProgramTest, TagFile_MustBeUsable) {
  write_file("empty.csv", "");
  EXPECT_EQ(run({"tags", path("empty.csv")}).code, 4);
  const Outcome missing = run({"tags", path("missing.csv")});
  EXPECT_EQ(missing.code, 4);
  EXPECT_EQ(missing.err, "plc-host: cannot read the tag file " + path("missing.csv") + ": No such file or directory\n");
  EXPECT_EQ(run({"read", "X", "--address", "127.0.0.1", "--port", "1", "--tags", path("missing.csv")}).code, 4);
}

TEST_F(ProgramTest, Library_MustLoadAndBeComplete) {
  EXPECT_EQ(run({"info", "--library", "/nonexistent.so", "--driver", "contract"}).code, 2) << "given twice";
  Child missing({PLC_HOST_PROGRAM, "info", "--library", "/nonexistent.so"}, path("out"), path("err"));
  EXPECT_EQ(missing.wait(), 3);
  Child foreign({PLC_HOST_PROGRAM, "info", "--library", "libm.so.6"}, path("out2"), path("err2"));
  EXPECT_EQ(foreign.wait(), 3);
  EXPECT_EQ(
      file_text(path("err2")),
      "plc-host: libm.so.6 is not a driver library: it has no entry point ev_plc_driver_info. Try: give the path of a "
      "libplc_driver.so.1 as the driver (plc-host: --driver PATH; else the setting driver), or none for the installed "
      "one\n");
}

TEST_F(ProgramTest, Simulator_MustStart) {
  EXPECT_EQ(run({"read", "X", "--sim", path("machine.csv"), "--simulator", "/nonexistent"}).code, 6);
  EXPECT_EQ(run({"read", "X", "--sim", path("machine.csv"), "--simulator", "/bin/true"}).code, 6);
  EXPECT_EQ(run({"read", "X", "--sim", path("missing.csv"), "--simulator", PLC_HOST_SIMULATOR}).code, 4) << "no start";
}

TEST_F(ProgramTest, SimulatorThatCountedViolations_GivesTheRunItsCode) {
  // Serves as usual and ends as it does after a violation.
  write_file("strict.sh", "#!/bin/sh\n" PLC_HOST_SIMULATOR " \"$@\"\nexit 1\n");
  ASSERT_EQ(chmod(path("strict.sh").c_str(), 0700), 0);
  const std::vector<std::string> simulator = {"--sim", path("machine.csv"), "--simulator", path("strict.sh")};
  std::vector<std::string> words = {"read", "Speed"};
  words.insert(words.end(), simulator.begin(), simulator.end());
  const Outcome outcome = run(words);
  EXPECT_EQ(outcome.code, 6);
  EXPECT_EQ(lines_of(outcome.out).size(), 1U);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: the simulator ended with code 1\n"));
  words[1] = "Nothing";
  EXPECT_EQ(run(words).code, 1) << "a failure of the command itself goes before it";
}

TEST_F(ProgramTest, CommandLine_RefusesWhatItDoesNotKnow) {
  const std::vector<std::vector<std::string>> wrong = {
      {"info", "--unknown"},
      {"unknown"},
      {"--unknown"},
      {"read", "Speed"},
      {"read", "--sim", "a.csv"},
      {"read", "X", "--address", "no where", "--port", "1"},
      {"read", "X", "--sim", "a", "--address", "1.2.3.4", "--port", "1"},
      {"read", "X", "--sim", "a", "--id", "1"},
      {"read", "X", "--sim", "a", "--offset", "1"},
      {"watch", "X", "--sim", "a", "--json", "--csv"},
      {"read", "X", "--address", "1.2.3.4", "--port", "70000"}};
  for (const std::vector<std::string>& words : wrong) {
    const Outcome outcome = run(words);
    EXPECT_EQ(outcome.code, 2) << words[0] << " " << words.back();
    EXPECT_NE(outcome.err, "") << words.back();
    EXPECT_EQ(outcome.out, "") << words.back();
  }
}

TEST_F(ProgramTest, Help_GoesToStandardOutputWithExamples) {
  const Outcome outcome = run({"--help"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("Examples:\n"));
  for (const char* command : {"info", "tags", "read", "write", "batch", "watch"}) {
    const Outcome help = run({command, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_GE(count_of(help.out, std::string("  plc-host ") + command + " "), 1U) << command;
  }
}

TEST_F(ProgramTest, PrivateFolder_IsGoneAtTheEnd) {
  run_on_simulator({"read", "Speed"});
  Child child({"/bin/ls", folder_.path()}, path("ls_out"), path("ls_err"));
  EXPECT_EQ(child.wait(), 0);
  EXPECT_THAT(file_text(path("ls_out")), Not(HasSubstr("plc-host.")));
}

TEST_F(ProgramTest, WatchPiped_WritesALinePerChange) {
  const Outcome outcome = run_on_simulator({"watch", "Speed", "Text", "--rounds", "3", "--interval", "1"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const std::vector<std::string> lines = lines_of(outcome.out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines[0], EndsWith(" good Speed = 0"));
  EXPECT_THAT(lines[1], EndsWith(" good Text = \"\""));
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: 6 calls, 0 failures, round trip "));
}

TEST_F(ProgramTest, WatchCsv_WritesARowPerRound) {
  const Outcome outcome = run_on_simulator(
      {"watch", "Speed", "Table[0..1]", "Text", "--rounds", "2", "--interval", "1", "--csv", "--batch"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const std::vector<std::string> lines = lines_of(outcome.out);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "time,state,reason,Speed,Table[0],Table[1],Text");
  EXPECT_THAT(lines[2], EndsWith(",good,,0,0,0,"));
}

TEST_F(ProgramTest, WatchChart_IsDrawnAtTheEndWhenPiped) {
  const Outcome outcome = run_on_simulator({"watch", "Speed", "--rounds", "3", "--interval", "1", "--chart", "Speed"});
  EXPECT_EQ(lines_of(outcome.out).size(), 10U) << outcome.out;
  EXPECT_EQ(run_on_simulator({"watch", "Speed", "--chart", "Text"}).code, 2);
  EXPECT_EQ(run_on_simulator({"watch", "Speed", "--chart", "Total"}).code, 2);
}

TEST_F(ProgramTest, WatchUnknownName_EndsAtOnce) { EXPECT_EQ(run_on_simulator({"watch", "Speed", "Nothing"}).code, 1); }

TEST_F(ProgramTest, WatchUntilCtrlC_LivesThroughAControllerThatGoesAndComesBack) {
  std::unique_ptr<Child> simulator = start_simulator();
  const std::vector<std::string> words =
      host_words({"watch", "Speed", "Total", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv"),
                  "--interval", "20", "--json"});
  Child watch(words, path("out"), path("err"));
  EXPECT_TRUE(watch.wait_for("\"Total\""));
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
  EXPECT_TRUE(watch.wait_for("\"lost\""));
  simulator = start_simulator();
  EXPECT_TRUE(watch.wait_for("\"back\""));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  const std::string out = file_text(path("out"));
  const std::string err = file_text(path("err"));
  EXPECT_EQ(count_of(err, "does not answer; asking on"), 1U) << err;
  EXPECT_EQ(count_of(err, "answers again after"), 1U) << err;
  EXPECT_LE(count_of(err, "driver: send error"), 1U) << err;
  // Neither variable keeps the value that it had.
  EXPECT_GE(count_of(out, "\"value\":null"), 2U) << out;
  EXPECT_TRUE(nlohmann::json::parse(lines_of(out).back()).contains("summary"));
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
}

TEST_F(ProgramTest, WatchWhoseReaderIsGone_Ends) {
  const std::string command = std::string(PLC_HOST_PROGRAM) +
                              " watch --library " PLC_HOST_LIBRARY " --simulator " PLC_HOST_SIMULATOR " --sim " +
                              path("machine.csv") + " --all --csv --interval 1 2>/dev/null | head -2";
  Child child({"/bin/sh", "-c", command}, path("out"), path("err"));
  EXPECT_EQ(child.wait(), 0);
  EXPECT_EQ(lines_of(file_text(path("out"))).size(), 2U);
}

TEST_F(ProgramTest, WatchInATerminal_RedrawsInPlace) {
  const std::vector<std::string> words =
      host_words({"watch", "Speed", "--rounds", "2", "--interval", "1", "--sim", path("machine.csv"), "--simulator",
                  PLC_HOST_SIMULATOR, "--quiet"});
  int terminal = -1;
  struct winsize size {};
  size.ws_col = 60;
  size.ws_row = 20;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  std::string shown;
  char piece[1024];
  for (ssize_t got = 0; (got = read(terminal, piece, sizeof piece)) > 0;) shown.append(piece, static_cast<size_t>(got));
  int status = 0;
  waitpid(child, &status, 0);
  close(terminal);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(count_of(shown, "NAME   TYPE    AGE     STATE  VALUE"), 2U) << shown;
  EXPECT_EQ(count_of(shown, "\033[4A\033[J"), 1U) << shown;
  EXPECT_EQ(count_of(shown, "Speed  INT   * 0."), 2U) << shown;
  EXPECT_EQ(count_of(shown, "\033[?25h"), 1U);
  EXPECT_THAT(shown, HasSubstr("2 calls, 0 failures"));
}

}  // namespace
