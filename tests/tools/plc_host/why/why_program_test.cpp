// Tests of plc-host why as a program: the road of a value, live and from captures, and what is said of each fault.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;
using Json = nlohmann::json;

// The same machine as a panel's engineer might have written it down: wrong names, types, scopes and a line too few.
constexpr char kWrongFile[] =
    "Ready,BOOL,,,,,,0,1,0,0,,MR\n"
    "Sped,INT,,,,,,1,1,0,0,,DM\n"
    "Speed,DINT,,,,,,2,1,0,0,,DM\n"
    "Table,INT,[0..19],,,,,3,1,0,0,,DM\n"
    "Count,INT,,,,,,4,0,0,7,MIAN,DM\n"
    "Flags,BOOL,[0..7],,,,,5,0,0,2,SUBWAY,MR\n"
    "Byte,BYTE,,,,,,6,1,0,0,,DM\n"
    "Grid,DINT,[0..2_0..4],,,,,7,0,0,1,MAIN,DM\n"
    "Last,INT,,,,,,8,1,0,0,";

class WhyTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    library_ = PLC_HOST_LIBRARY;
    write_file("wrong.csv", kWrongFile);
  }

  // The road of a variable of kTagFile under a fault of its simulator.
  Outcome why_with_fault(const std::string& name, const std::string& fault) {
    return run_on_simulator({"why", name, "--timeout", "1"}, {"--sentinel", "--fault=" + fault});
  }

  // The road of a variable of the wrong file against a simulator that has the right one.
  Outcome why_wrong(std::vector<std::string> words) {
    const std::unique_ptr<Child> simulator = start_simulator({"--sentinel"});
    words.insert(words.begin(), "why");
    words.insert(words.end(), {"--address", "127.0.0.1", "--port", port_, "--tags", path("wrong.csv")});
    Outcome outcome = run(words);
    simulator->close_input();
    simulator->wait();
    return outcome;
  }

  // The road of Speed by a plc-host that is given how its controller takes a connection: see given_reach.cpp.
  Outcome why_with_reach(const char* reach) {
    setenv("PLC_GIVEN_REACH", reach, 1);
    const std::vector<std::string> words =
        host_words({"why", "Speed", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
    Outcome outcome = run_words(words);
    unsetenv("PLC_GIVEN_REACH");
    return outcome;
  }

  // A capture of everything in kTagFile that can be read.
  std::string capture_of_all() {
    run_on_simulator({"read", "--all"}, {"--sentinel", "--pcap", path("all.pcap")});
    return path("all.pcap");
  }
};

// What stands behind a heading, up to the next empty line.
std::string section(const std::string& text, const std::string& heading) {
  const size_t start = text.find("\n" + heading + "\n");
  if (start == std::string::npos) return {};
  const size_t from = start + heading.size() + 2;
  return text.substr(from, text.find("\n\n", from) - from);
}

std::string went_wrong(const Outcome& outcome) { return section(outcome.out + "\n", "What went wrong") + "\n"; }

std::string row(const std::string& text, const std::string& heading) {
  for (const std::string& line : lines_of(text)) {
    if (line.compare(0, heading.size() + 1, heading + " ") == 0) return line.substr(12);
  }
  return {};
}

constexpr char kNothing[] = "  nothing\n";

TEST_F(WhyTest, GoodValue_ShowsItsWholeRoad) {
  const Outcome outcome = run_on_simulator({"why", "Count"}, {"--sentinel"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(row(outcome.out, "tag line"), path("machine.csv") + ":20: Count,INT,,,,,,19,0,0,1,MAIN,DM");
  EXPECT_EQ(row(outcome.out, "record"), "19, plain");
  EXPECT_EQ(row(outcome.out, "id"), "19 (0x13)");
  EXPECT_EQ(row(outcome.out, "reg_type"), "0");
  EXPECT_EQ(row(outcome.out, "address"), "0x00130000 (offset 0, count 1)");
  EXPECT_EQ(row(outcome.out, "type"), "INT");
  EXPECT_EQ(row(outcome.out, "scope"), "local to \"MAIN\", sent as number 1");
  EXPECT_EQ(row(outcome.out, "directory"), "1 \"MAIN\", 2 \"SUB\"");
  EXPECT_EQ(row(outcome.out, "returned"), "0");
  EXPECT_EQ(went_wrong(outcome), kNothing);
  const std::string exchanges = section(outcome.out, "exchanges");
  EXPECT_EQ(lines_of(exchanges).size(), 4U) << exchanges;
  EXPECT_THAT(exchanges, HasSubstr("  3   resolve          0C 28  seq 0000  "));
  EXPECT_THAT(exchanges, HasSubstr(" ms"));
  const std::string names = section(outcome.out, "names sent in exchange 3, handles received");
  EXPECT_THAT(names, StartsWith("  \"Count\" in scope 1 -> area 06, address "));
  const std::string raw = section(outcome.out, "raw reply of exchange 4");
  EXPECT_THAT(raw, StartsWith("  00 00 00 06 FF FF FF F9 00 01 1E 09 00 00 "));
}

TEST_F(WhyTest, Value_IsThatOfARead) {
  for (const char* name :
       {"Ready", "Total", "Big", "Temp", "Text", "Table[2..4]", "Grid", "Bits", "Motor.Run", "Flags", "Long", "Idx0"}) {
    const Outcome read = run_on_simulator({"read", name, "--json"}, {"--sentinel"});
    const Outcome why = run_on_simulator({"why", name, "--json"}, {"--sentinel"});
    const Json road = Json::parse(why.out);
    EXPECT_EQ(road["value"], Json::parse(read.out)["value"]) << name;
    EXPECT_EQ(road["wrong"], Json::array()) << name;
    EXPECT_EQ(why.code, 0) << name;
  }
}

TEST_F(WhyTest, Json_HoldsEveryPartOfTheRoad) {
  const Outcome outcome = run_on_simulator({"why", "--id", "262145", "--json"}, {"--sentinel"});
  EXPECT_EQ(outcome.code, 0);
  const Json road = Json::parse(outcome.out);
  EXPECT_EQ(road["asked"], "number 262145");
  EXPECT_EQ(road["tag"], Json::parse("{\"file\":\"" + path("machine.csv") +
                                     "\",\"line\":24,\"text\":\"Idx1,REAL,,,,,,262145,1,0,0,\",\"name\":\"Idx1\","
                                     "\"indexed\":true,\"type\":\"REAL\",\"global\":true}"));
  EXPECT_EQ(road["calls"], Json::parse(R"([{"reg_type":4,"address":65536,"offset":0,"count":1}])"));
  EXPECT_EQ(road["directory"], Json::parse(R"([{"number":1,"name":"MAIN"},{"number":2,"name":"SUB"}])"));
  ASSERT_EQ(road["exchanges"].size(), 4U);
  const Json& resolve = road["exchanges"][2];
  EXPECT_EQ(resolve["kind"], "resolve");
  EXPECT_EQ(resolve["names"][0]["name"], "Idx1");
  EXPECT_TRUE(resolve["names"][0]["scope"].is_null());
  EXPECT_TRUE(resolve["names"][0]["address"].is_number());
  EXPECT_EQ(resolve["status"], 0);
  EXPECT_GT(resolve["ms"].get<double>(), 0.0);
  EXPECT_THAT(road["exchanges"][3]["request"].get<std::string>(), StartsWith("00 00 00 10 FF FF FF EF 00 01 1E 09 "));
  EXPECT_EQ(road["code"], 0);
}

TEST_F(WhyTest, NameThatIsNotInTheFile_NamesNearOnes) {
  const Outcome letters = run_on_simulator({"why", "speed"});
  EXPECT_EQ(letters.code, 1);
  EXPECT_EQ(
      went_wrong(letters),
      "  1. speed: the tag file has no variable of this name\n     Try: Did you mean Speed? Letter case counts.\n");
  EXPECT_EQ(went_wrong(run_on_simulator({"why", "Cuont"})),
            "  1. Cuont: the tag file has no variable of this name\n     Try: Did you mean Count? Letter case "
            "counts.\n");
  EXPECT_EQ(went_wrong(run_on_simulator({"why", "Somewhere.Else"})),
            "  1. Somewhere.Else: the tag file has no variable of this name\n     Try: List what can be asked for: "
            "plc-host tags FILE.\n");
}

TEST_F(WhyTest, LastLineWithoutLineEnd_IsTheReason) {
  const Outcome outcome = why_wrong({"Last"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(went_wrong(outcome),
            "  1. " + path("wrong.csv") +
                ":9 declares Last, but it is the last line and has no trailing newline: the driver ignores "
                "it\n     Try: End the file with a newline: plc-host check FILE --fix COPY does "
                "it.\n");
}

TEST_F(WhyTest, SubscriptOutside_IsToldWithTheTagLine) {
  const Outcome outcome = run_on_simulator({"why", "Table[12]"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(row(outcome.out, "type"), "INT[0..9]");
  EXPECT_EQ(went_wrong(outcome),
            "  1. Table[12]: subscript 12 is outside 0..9\n     Try: Write scope, name and subscripts as the tag line "
            "declares them.\n");
}

TEST_F(WhyTest, NumberThatCannotBeAddressed_SaysWhy) {
  const Outcome last = run_on_simulator({"why", "--id", "262146"});
  EXPECT_EQ(last.code, 1);
  EXPECT_THAT(went_wrong(last),
              HasSubstr("  1. record Idx2 cannot be addressed: the largest indexed id of a file cannot be "
                        "asked for\n"));
  EXPECT_THAT(last.out, HasSubstr("Worth knowing\n  - the driver printed \"[PLC] tag id 262146 is not exist"));
  const Outcome none = run_on_simulator({"why", "--id", "99"});
  EXPECT_EQ(none.code, 1);
  EXPECT_THAT(went_wrong(none),
              HasSubstr("  1. no record has the number 99: plain records are 0 to 21, the largest indexed id is "
                        "262146\n"));
}

TEST_F(WhyTest, OffsetOutside_NamesTheElementThatWasAskedFor) {
  const Outcome outcome = run_on_simulator({"why", "--id", "8", "--offset", "9", "--count", "2"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(went_wrong(outcome),
              HasSubstr("index out of range: offset 10 makes the driver ask for Table[10], declared is "
                        "INT[0..9]\n"));
}

TEST_F(WhyTest, OffsetOfASingleVariable_IsWorthKnowing) {
  const Outcome outcome = run_on_simulator({"why", "--id", "2", "--offset", "3"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("  - a single DINT has no elements: offset 3, count 1 name the variable itself\n"
                                     "    Try: Leave --offset and --count away.\n"));
}

TEST_F(WhyTest, WrongScope_NamesTheControllersPrograms) {
  const Outcome outcome = why_wrong({"Count"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(
      went_wrong(outcome),
      "  1. the scope \"MIAN\" is not among the controller's programs (1 \"MAIN\", 2 \"SUB\"): number 7 from column "
      "11 went with the name, and may be another program's\n"
      "     Try: Write MAIN in column 12 of the line, exactly as the controller has it.\n"
      "  2. exchange 3 (resolve): the controller refused Count (scope 7): status 0004 in bytes 12 and 13\n"
      "     Try: No variable of this name in this scope, or not with these subscripts: compare spelling, case, "
      "scope and array bounds with the controller's own list of variables.\n");
  EXPECT_THAT(outcome.out, HasSubstr("value       0  (not to be trusted)\n"));
}

TEST_F(WhyTest, ScopeThatBeginsWithAProgram_IsFoundAlthoughAValueCame) {
  const Outcome outcome = why_wrong({"Flags"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(
      went_wrong(outcome),
      StartsWith("  1. the scope \"SUBWAY\" was taken for the program \"SUB\", whose name is the beginning of it: "
                 "number 2 went with the name"));
}

TEST_F(WhyTest, WrongName_IsRefusedByTheController) {
  const Outcome outcome = why_wrong({"Sped"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(went_wrong(outcome),
              HasSubstr("exchange 3 (resolve): the controller refused Sped (global): status 0004"));
  EXPECT_EQ(section(outcome.out, "names sent in exchange 3, handles received"), "  \"Sped\" global -> no handle");
}

TEST_F(WhyTest, LocalInsteadOfGlobal_IsRefusedWithItsScope) {
  EXPECT_THAT(went_wrong(why_wrong({"Grid[1,1]"})),
              HasSubstr("the controller refused Grid[#1,#1] (scope 1): status 0004"));
}

TEST_F(WhyTest, WrongType_IsRefusedAtTheValueRequest) {
  const Outcome outcome = why_wrong({"Speed"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(
      went_wrong(outcome),
      "  1. exchange 4 (read): the controller refused the request: status 0013 in bytes 12 and 13\n"
      "     Try: The handles or the size asked for do not fit the variable: compare the type in the tag file with "
      "the controller's declaration.\n");
}

TEST_F(WhyTest, EightBits_AreNotRead) {
  const Outcome outcome = why_wrong({"Byte"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(went_wrong(outcome), HasSubstr("  1. the driver reads no 8-bit values, and the variable is a BYTE\n"));
  EXPECT_THAT(outcome.out, HasSubstr("Worth knowing\n  - line 7, T091: "));
}

TEST_F(WhyTest, RefusedConnect_IsToldFromSilence) {
  const Outcome outcome =
      run({"why", "Speed", "--address", "127.0.0.1", "--port", port_, "--tags", path("machine.csv")});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(went_wrong(outcome),
              StartsWith("  1. 127.0.0.1:" + port_ + " refuses connections: nothing listens on that port\n"));
  EXPECT_THAT(outcome.out, HasSubstr("  - the driver printed \"send error\": a request could not be sent"));
}

TEST_F(WhyTest, ConnectionThatIsNeverTaken_IsToldWithItsReasonAndTime) {
  const std::unique_ptr<Child> simulator = start_simulator();
  simulator->close_input();
  simulator->wait();
  const Outcome outcome = why_with_reach("2500 Connection timed out");
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(went_wrong(outcome),
              StartsWith("  1. 127.0.0.1:" + port_ +
                         " takes no connection: Connection timed out after 2500 ms\n"
                         "     Try: Check the address, cable, subnet and firewall, and whether other hosts use up the "
                         "controller's connections.\n"));
}

TEST_F(WhyTest, ConnectionThatIsTakenLate_IsSetAgainstTheDriversPatience) {
  const std::unique_ptr<Child> simulator = start_simulator();
  const Outcome late = why_with_reach("31");
  EXPECT_EQ(late.code, 1);
  EXPECT_EQ(went_wrong(late), "  1. 127.0.0.1:" + port_ +
                                  " took 31 ms to take a connection; the driver waits 30 ms\n"
                                  "     Try: Look for what is slow on the way: a radio link, a switch that wakes up, a "
                                  "controller under load.\n");
  const Outcome in_time = why_with_reach("30");
  EXPECT_EQ(in_time.code, 0);
  EXPECT_EQ(went_wrong(in_time), kNothing);
}

TEST_F(WhyTest, TagFileThatIsMissing_IsAnAnswer) {
  const Outcome outcome = run({"why", "Speed", "--address", "127.0.0.1", "--port", "1"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(outcome.out,
            "Speed from 127.0.0.1:1\n"
            "\nWhat went wrong\n"
            "  1. cannot read PLC7F000001_0.csv: No such file or directory\n"
            "     Try: The driver looks in the host's working directory for PLC<address in hexadecimal>_<area>.csv: "
            "plc-host check FILE --address ADDRESS.\n");
}

TEST_F(WhyTest, NamedTagFileThatIsMissing_IsNoneOfTheWorkingDirectory) {
  const Outcome outcome = run({"why", "Speed", "--address", "127.0.0.1:1", "--tags", "other.csv"});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_EQ(went_wrong(outcome),
            "  1. cannot read other.csv: No such file or directory\n"
            "     Try: Check the path that --tags or the setting names.\n");
}

TEST_F(WhyTest, TagFileWithoutARecord_IsExplained) {
  write_file("one.csv", "Speed,INT,,,,,,0,1,0,0,");
  const Outcome outcome = run({"why", "Speed", "--address", "127.0.0.1", "--port", "1", "--tags", path("one.csv")});
  EXPECT_EQ(outcome.code, 4);
  EXPECT_THAT(went_wrong(outcome),
              HasSubstr("  2. line 1, T001: the last line has no trailing newline: the driver ignores it\n     Try: "
                        "End the file with a newline.\n"));
}

struct FaultCase {
  const char* fault;
  const char* said;  // with a fault: its first line; without: what is worth knowing
  int code;
};

void PrintTo(const FaultCase& fault, std::ostream* out) { *out << fault.fault; }

class WhyFaultTest : public WhyTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(WhyFaultTest, EachFaultOfTheController_IsNamed) {
  const FaultCase& fault = GetParam();
  const Outcome outcome = why_with_fault("MAIN/Count", fault.fault);
  EXPECT_EQ(outcome.code, fault.code) << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr(fault.said));
}

// How long it took, and in how many pieces a slow reply came, is what the relay saw: not always what plc-sim meant.
const FaultCase kFaultCases[] = {
    {"delay 5 on=read", "What went wrong\n  nothing\n", 0},
    {"no-reply on=resolve", "  1. exchange 3 (resolve): no reply within ", 1},
    {"close on=read", "  1. exchange 4 (read): the controller closed the connection instead of answering\n", 1},
    {"reset on=read", "  1. exchange 4 (read): the controller reset the connection instead of answering\n", 1},
    {"cut 15 on=read", "  1. exchange 4 (read): a short reply: its head announces 16 bytes, 15 came\n", 1},
    {"cut 8 on=read", "  1. exchange 4 (read): the reply has 8 bytes, not even a head\n", 1},
    {"cut 20 on=directory", "  1. exchange 2 (directory): a short reply: its head announces 41 bytes, 20 came\n", 1},
    // The end may come before or behind the next request.
    {"close-after 20 on=resolve", "  1. exchange 3 (resolve): a short reply: its head announces 41 bytes, 20 came", 1},
    {"reset-after 5 on=resolve", "  1. exchange 3 (resolve): the reply has 5 bytes, not even a head", 1},
    {"split 10 100 on=read", "  1. exchange 4 (read): the reply came in 2 pieces, the last one ", 1},
    {"split 30 100 on=resolve",
     "  2. exchange 4 (read): the rest of the reply before it, 11 bytes, came first, and the contract build takes it "
     "for the reply\n",
     1},
    {"drip 5 on=read", "  1. exchange 4 (read): the reply came in ", 1},
    {"stale 9 on=read",
     "  1. exchange 4 (read): 9 bytes that belong to nothing came before the reply, and the contract build takes them "
     "for it\n",
     1},
    {"trailing 9 on=read", "  - exchange 4 (read): 9 bytes more than the reply's head announces came behind it\n", 0},
    {"oversize 200 on=read", "  - exchange 4 (read): 184 bytes more than the reply's head announces came behind it\n",
     0},
    {"garbage on=resolve",
     "  1. exchange 3 (resolve): what came is not a reply: its first eight bytes are not a length and the complement "
     "of it\n",
     1},
    {"wrong-sequence on=read",
     "  1. exchange 4 (read): the reply carries the sequence number 0002, the request 0001\n"
     "     Try: No request of this kind before it has this number. The guarded build does not read a controller that "
     "does not "
     "repeat sequence numbers: plc-host survey tells whether all replies are so, and whether the contract build reads "
     "it.\n",
     1},
    {"gone", " refuses connections: nothing listens on that port\n", 7},
    // What follows depends on whether the two frames come at once.
    {"foreign on=directory",
     "  1. exchange 2 (directory): a foreign reply (sequence number 0000, class and command 0C25) came before the "
     "right "
     "one, and the contract build took it for the reply\n"
     "     Try: It answers no request that waited for a reply: look for what else writes into the connection (a "
     "gateway, another host behind it), and capture on both sides of it (tcpdump).\n",
     1},
    {"stale 9 on=directory", "no whole directory is among what came for it: whether the controller has the program ",
     1},
    {"duplicate on=read", "  - exchange 4 (read): a doubled reply: the same 16 bytes came again behind it\n", 0},
    {"close on=directory", "  1. exchange 2 (directory): the controller closed the connection instead of answering\n",
     1},
};

INSTANTIATE_TEST_SUITE_P(Faults, WhyFaultTest, testing::ValuesIn(kFaultCases), [](const auto& instance) {
  std::string name = instance.param.fault;
  std::replace_if(
      name.begin(), name.end(), [](char sign) { return std::isalnum(sign) == 0; }, '_');
  return name;
});

TEST_F(WhyTest, Pcap_HoldsTheRoadForALaterLook) {
  const Outcome live = run_on_simulator({"why", "Table[2..4]", "--pcap", path("road.pcap")}, {"--sentinel"});
  EXPECT_EQ(live.code, 0);
  const Outcome later = run({"why", "Table[2..4]", "--capture", path("road.pcap"), "--tags", path("machine.csv")});
  EXPECT_EQ(later.code, 0) << later.err;
  EXPECT_EQ(row(later.out, "value"), row(live.out, "value"));
  EXPECT_EQ(row(later.out, "asked for"), "1 time, 0 with a fault");
  EXPECT_EQ(section(later.out, "raw reply of exchange 4"), section(live.out, "raw reply of exchange 4"));
  EXPECT_EQ(section(later.out, "names sent in exchange 3, handles received"),
            section(live.out, "names sent in exchange 3, handles received"));
}

TEST_F(WhyTest, PcapThatCannotBeWritten_EndsWithACodeOfItsOwn) {
  for (const std::string& file : {path("no/such/folder.pcap"), std::string("/dev/full")}) {
    const Outcome outcome = run_on_simulator({"why", "Speed", "--pcap", file});
    EXPECT_EQ(outcome.code, 8);
    EXPECT_THAT(outcome.err, HasSubstr("plc-host: cannot write " + file + ": "));
  }
}

TEST_F(WhyTest, Capture_HasTheValuesThatTheDriverRead) {
  const std::string capture = capture_of_all();
  for (const char* name : {"Ready", "Speed", "Total", "Big", "Temp", "Exact", "Mask", "Text", "Table", "Longs", "Bits",
                           "EmBits", "Motor.Run", "Line[2].On", "MAIN/Count", "Flags", "Idx0", "Idx1"}) {
    const Outcome read = run_on_simulator({"read", name, "--json"}, {"--sentinel"});
    const Outcome why = run({"why", name, "--capture", capture, "--tags", path("machine.csv"), "--json"});
    EXPECT_EQ(why.code, 0) << name << why.out;
    EXPECT_EQ(Json::parse(why.out)["value"], Json::parse(read.out)["value"]) << name;
    EXPECT_TRUE(Json::parse(why.out)["code"].is_null()) << name;
  }
}

TEST_F(WhyTest, CaptureWithoutTagFile_ShowsTheBytes) {
  const std::string capture = capture_of_all();
  const Outcome outcome = run({"why", "Table[3]", "--capture", capture});
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  EXPECT_EQ(row(outcome.out, "tag line"), "");
  EXPECT_THAT(outcome.out, HasSubstr("  \"Table[#3]\" global -> area 06, address "));
  EXPECT_EQ(row(outcome.out, "value").size(), 5U) << outcome.out;
}

TEST_F(WhyTest, CaptureInWhichNobodyAsked_SaysSo) {
  const std::string capture = capture_of_all();
  const Outcome outcome = run({"why", "Motor.run", "--capture", capture});
  EXPECT_EQ(outcome.code, 1);
  const std::string wrong = went_wrong(outcome);
  EXPECT_THAT(wrong, StartsWith("  1. nobody asked for Motor.run in this capture"));
  EXPECT_THAT(wrong, HasSubstr("     Try: Was Motor.Run meant? Letter case counts.\n"));
  write_file("global.csv", "Count,INT,,,,,,0,1,0,0,,DM\n");
  const Outcome scope = run({"why", "Count", "--capture", capture, "--tags", path("global.csv")});
  EXPECT_EQ(scope.code, 1);
  EXPECT_EQ(went_wrong(scope),
            "  1. Count was asked for as a variable of a program, not as a global variable\n"
            "     Try: Compare column 9 of the tag file that the host had with the controller's declaration.\n");
}

TEST_F(WhyTest, CaptureWithFewerBytesThanTheTypeTakes_ShowsNoValue) {
  const std::string capture = capture_of_all();
  write_file("wide.csv", "Speed,LINT,,,,,,1,1,0,0,,DM\n");
  const Outcome outcome = run({"why", "Speed", "--capture", capture, "--tags", path("wide.csv")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_EQ(row(outcome.out, "value"), "");
  EXPECT_EQ(went_wrong(outcome),
            "  1. there is no value: fewer bytes came than a LINT takes\n"
            "     Try: Compare the type in the tag file that the host had with the controller's declaration.\n");
}

TEST_F(WhyTest, CaptureByNumber_NeedsTheTagFile) {
  const std::string capture = capture_of_all();
  EXPECT_EQ(run({"why", "--id", "1", "--capture", capture}).code, 2);
  const Outcome outcome = run({"why", "--id", "1", "--capture", capture, "--tags", path("machine.csv")});
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  EXPECT_EQ(row(outcome.out, "tag line"), path("machine.csv") + ":2: Speed,INT,,,,,,1,1,0,0,,DM");
}

TEST_F(WhyTest, WrongScopeInACapture_IsFoundLater) {
  const std::unique_ptr<Child> simulator = start_simulator({"--pcap", path("field.pcap")});
  run({"read", "MIAN/Count", "--address", "127.0.0.1", "--port", port_, "--tags", path("wrong.csv")});
  simulator->close_input();
  simulator->wait();
  const Outcome outcome = run({"why", "MIAN/Count", "--capture", path("field.pcap"), "--tags", path("wrong.csv")});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(went_wrong(outcome),
              StartsWith("  1. the scope \"MIAN\" is not among the controller's programs (1 \"MAIN\", 2 \"SUB\")"));
}

TEST_F(WhyTest, CaptureThatCannotBeUsed_IsRefusedWithItsReason) {
  write_file("text.pcap", "this is no capture");
  const Outcome text = run({"why", "Speed", "--capture", path("text.pcap")});
  EXPECT_EQ(text.code, 2);
  EXPECT_EQ(text.err, "plc-host: " + path("text.pcap") +
                          ": not a pcap or pcapng file, as tcpdump, tshark and Wireshark write them: unknown file "
                          "format\n");
  EXPECT_EQ(run({"why", "Speed", "--capture", path("missing.pcap")}).code, 2);
}

TEST_F(WhyTest, CaptureThatBreaksOff_IsReadAsFarAsItGoes) {
  const std::string whole = file_text(capture_of_all());
  write_file("cut.pcap", whole.substr(0, whole.size() - 7));
  const Outcome outcome = run({"why", "Speed", "--capture", path("cut.pcap")});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("  - " + path("cut.pcap") + ": the file breaks off after packet "));
}

}  // namespace
