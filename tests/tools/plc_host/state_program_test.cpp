// Tests that a value which was not read is never shown as one, in any form of output.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/tools/plc_host/program_fixture.h"

namespace {

using namespace plc_host_test;
using Json = nlohmann::json;

// What a panel's engineer wrote down: one name that the controller does not have.
constexpr char kPanelFile[] =
    "Limits,UINT,,,,,,0,1,0,0,,DM\n"
    "Speed,INT,,,,,,1,1,0,0,,DM\n"
    "Total,DINT,,,,,,2,1,0,0,,DM\n"
    "Byte,BYTE,,,,,,3,1,0,0,,DM\n"
    "Odd,INT,[1..3_2..5],,,,,4,1,0,0,,DM\n"
    "Table,INT,[0..9],,,,,5,1,0,0,,DM\n";

class StateTest : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    write_file("panel.csv", kPanelFile);
  }

  // A command of the panel on a simulator of its own.
  Outcome ask(std::vector<std::string> words, const std::vector<std::string>& simulator_arguments = {}) {
    const std::unique_ptr<Child> simulator = start_simulator(simulator_arguments);
    Outcome outcome = run(on_controller(std::move(words)));
    simulator->close_input();
    simulator->wait();
    return outcome;
  }

  std::vector<std::string> on_controller(std::vector<std::string> words) const {
    words.insert(words.end(),
                 {"--address", "127.0.0.1", "--port", port_, "--tags", path("panel.csv"), "--timeout", "1", "--quiet"});
    return words;
  }
};

// The words of a row, as far as there are blanks between them.
std::vector<std::string> words_of(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

// Fields of a row of a spreadsheet, in which no quoted field holds a quote.
std::vector<std::string> fields_of(const std::string& line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (const char sign : line) {
    if (sign == '"') {
      quoted = !quoted;
    } else if (sign == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += sign;
    }
  }
  return fields;
}

struct StateCase {
  const char* state;
  const char* name;
  const char* fault;   // of the simulator; "" for none
  const char* reason;  // part of it
  int code;
};

void PrintTo(const StateCase& given, std::ostream* out) { *out << given.state; }

const StateCase kStateCases[] = {
    {"refused", "Limits", "", "the controller refused the name, status 0004 (3)", 1},
    {"incomplete", "Byte", "", "the reply holds 0 bytes of values, ", 1},
    {"no-answer", "Speed", "no-reply on=read", ": no answer within 1 s (3)", 7},
    {"no-answer", "Speed", "cut 15 on=read", ": only 15 bytes of the answer came within 1 s (3)", 7},
    {"lost", "Speed", "close on=read", ": the controller closed the connection (3)", 7},
    {"lost", "Speed", "reset on=read", ": the connection was lost: Connection reset by peer (3)", 7},
    {"foreign", "Speed", "garbage on=read", ": what answers there does not speak this protocol (3)", 7},
    {"no-connection", "Speed", "refuse-accept", ": nothing took the connection within 30 ms (2)", 7},
    {"impossible", "Odd", "", "no offset makes the driver read Odd[1,2]", 1},
};

class StateCaseTest : public StateTest, public testing::WithParamInterface<StateCase> {
 protected:
  static std::vector<std::string> faults() {
    const std::string fault = GetParam().fault;
    return fault.empty() ? std::vector<std::string>() : std::vector<std::string>{"--fault=" + fault};
  }
};

INSTANTIATE_TEST_SUITE_P(States, StateCaseTest, testing::ValuesIn(kStateCases), [](const auto& instance) {
  std::string name = std::string(instance.param.state) + "_" + instance.param.fault;
  std::replace_if(
      name.begin(), name.end(), [](char sign) { return std::isalnum(sign) == 0; }, '_');
  return name;
});

TEST_P(StateCaseTest, Text_HasTheStateTheReasonAndNoValue) {
  const StateCase& given = GetParam();
  const Outcome outcome = ask({"read", given.name}, faults());
  EXPECT_EQ(outcome.code, given.code);
  const std::vector<std::string> words = words_of(outcome.out);
  ASSERT_EQ(words.size(), 5U) << outcome.out;
  EXPECT_EQ(words[0], given.name);
  EXPECT_EQ(words[2], given.state);
  EXPECT_EQ(words[4], "-");
  EXPECT_EQ(outcome.err.find("plc-host: " + words[0] + ": "), 0U) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr(given.reason));
}

TEST_P(StateCaseTest, Json_HasTheStateTheReasonAndANull) {
  const StateCase& given = GetParam();
  const Outcome outcome = ask({"read", "--json", given.name}, faults());
  EXPECT_EQ(outcome.code, given.code);
  const Json result = Json::parse(outcome.out);
  EXPECT_EQ(result["state"], given.state);
  EXPECT_TRUE(result["value"].is_null()) << outcome.out;
  EXPECT_THAT(result["reason"].get<std::string>(), HasSubstr(given.reason));
  EXPECT_EQ(result["time"].get<std::string>().size(), 24U);
}

TEST_P(StateCaseTest, Batch_HasTheStateOfTheSingleRead) {
  const StateCase& given = GetParam();
  const Outcome outcome = ask({"batch", "--json", given.name}, faults());
  EXPECT_EQ(outcome.code, given.code);
  const Json result = Json::parse(outcome.out);
  EXPECT_EQ(result["state"], given.state) << outcome.out;
  EXPECT_TRUE(result["value"].is_null()) << outcome.out;
}

TEST_P(StateCaseTest, Csv_HasTheStateTheReasonAndEmptyCells) {
  const StateCase& given = GetParam();
  const Outcome outcome = ask({"watch", "--csv", "--rounds", "1", given.name}, faults());
  EXPECT_EQ(outcome.code, given.code);
  const std::vector<std::string> lines = lines_of(outcome.out);
  ASSERT_EQ(lines.size(), 2U) << outcome.out;
  const std::vector<std::string> row = fields_of(lines[1]);
  EXPECT_EQ(row.size(), fields_of(lines[0]).size()) << outcome.out;
  EXPECT_EQ(row[1], given.state);
  EXPECT_THAT(row[2], StartsWith(std::string(given.name) + ": "));
  EXPECT_THAT(row[2], HasSubstr(given.reason));
  for (size_t i = 3; i < row.size(); ++i) EXPECT_EQ(row[i], "") << lines[0];
}

TEST_P(StateCaseTest, Watch_WritesALineForTheState) {
  const StateCase& given = GetParam();
  const Outcome lines = ask({"watch", "--rounds", "1", given.name}, faults());
  EXPECT_THAT(lines.out, HasSubstr(" " + std::string(given.state) + " " + given.name + ":"));
  EXPECT_THAT(lines.out, HasSubstr(given.reason));
}

TEST_F(StateTest, WatchOfWhatAnswersOtherwise_DoesNotCallItSilent) {
  const std::vector<std::string> foreign = {"--fault=garbage on=read"};
  const Outcome text = ask({"watch", "--rounds", "1", "Speed"}, foreign);
  EXPECT_EQ(text.err.find("plc-host: no values: Speed: 127.0.0.1:" + port_ +
                          ": what answers there does not speak this protocol (3); asking on\n"),
            0U)
      << text.err;
  EXPECT_THAT(text.err, Not(HasSubstr("does not answer")));
  EXPECT_THAT(text.err, HasSubstr("plc-host: 1 call, 1 failure, round trip - / - / - ms "));
  const std::vector<std::string> lines = lines_of(ask({"watch", "--json", "--rounds", "1", "Speed"}, foreign).out);
  EXPECT_EQ(Json::parse(lines.at(0))["event"], "no-values");
  const Json summary = Json::parse(lines.at(2))["summary"];
  for (const char* time : {"shortest_ms", "mean_ms", "longest_ms"}) EXPECT_TRUE(summary.at(time).is_null()) << time;
}

TEST_F(StateTest, NameThatTheControllerDoesNotHave_IsNeitherReadNorWritten) {
  const Outcome read = ask({"read", "Limits", "Speed"});
  EXPECT_EQ(read.code, 1);
  EXPECT_EQ(words_of(lines_of(read.out).at(1))[2], "good");
  EXPECT_THAT(read.err, HasSubstr(". Try: No variable of this name in this scope"));
  const Outcome write = ask({"write", "Limits=5", "Speed=7"});
  EXPECT_EQ(write.code, 1);
  EXPECT_EQ(words_of(lines_of(write.out).at(0))[2], "refused");
  EXPECT_EQ(words_of(lines_of(write.out).at(0))[4], "-");
  EXPECT_EQ(words_of(lines_of(write.out).at(1))[2], "written");
  EXPECT_EQ(write.err.find("plc-host: Limits: the controller refused the name, status 0004 (3)"), 0U) << write.err;
}

TEST_F(StateTest, NameThatTheControllerDoesNotHave_CostsNoOtherOfABatchItsValue) {
  for (const char* command : {"batch", "read"}) {
    const Outcome outcome = ask({command, "Speed", "Limits", "Total", "Table"}, {"--sentinel"});
    EXPECT_EQ(outcome.code, 1);
    const std::vector<std::string> lines = lines_of(outcome.out);
    ASSERT_EQ(lines.size(), 4U);
    for (const size_t i : {size_t{0}, size_t{2}, size_t{3}}) EXPECT_EQ(words_of(lines[i])[2], "good") << lines[i];
    EXPECT_EQ(words_of(lines[1])[2], "refused");
  }
  const Outcome watch = ask({"watch", "--batch", "--csv", "--rounds", "1", "Speed", "Limits"});
  const std::vector<std::string> row = fields_of(lines_of(watch.out).at(1));
  EXPECT_EQ(row[1], "partial");
  EXPECT_EQ(row[2], "Limits: the controller refused the name, status 0004 (3)");
  EXPECT_EQ(row[3], "0");
  EXPECT_EQ(row[4], "");
}

TEST_F(StateTest, ReplyInTwoSegments_IsReadWhole) {
  const Outcome whole = ask({"read", "--json", "Table"}, {"--sentinel"});
  const Outcome torn = ask({"read", "--json", "Table"}, {"--sentinel", "--fault=split 200 30 on=resolve"});
  EXPECT_EQ(torn.code, 0);
  EXPECT_EQ(Json::parse(torn.out)["state"], "good");
  EXPECT_EQ(Json::parse(torn.out)["value"], Json::parse(whole.out)["value"]);
  const Outcome write = ask({"write", "--verify", "--json", "Table=[1,2,3,4,5,6,7,8,9,10]"},
                            {"--sentinel", "--fault=split 200 30 on=resolve"});
  EXPECT_EQ(Json::parse(write.out)["state"], "verified");
}

TEST_F(StateTest, ValueOfTheContractBuild_IsUnguardedInEveryForm) {
  library_ = PLC_HOST_LIBRARY;
  EXPECT_EQ(words_of(ask({"read", "Speed"}).out)[2], "unguarded");
  const Json result = Json::parse(ask({"read", "--json", "Speed"}).out);
  EXPECT_EQ(result["state"], "unguarded");
  EXPECT_EQ(result["value"], 0);
  EXPECT_THAT(ask({"watch", "--rounds", "1", "Speed"}).out, EndsWith(" unguarded Speed = 0\n"));
  const Outcome csv = ask({"watch", "--rounds", "1", "--csv", "Speed"});
  EXPECT_THAT(lines_of(csv.out).at(1), EndsWith(",unguarded,,0"));
  EXPECT_EQ(words_of(ask({"write", "Speed=5"}).out)[2], "unguarded");
}

TEST_F(StateTest, SilentController_IsAskedOnceForAll) {
  const Outcome outcome = ask({"read", "--all"}, {"--fault=no-reply on=read times=always after=1"});
  EXPECT_EQ(outcome.code, 1);
  const std::vector<std::string> lines = lines_of(outcome.out);
  const char* const states[] = {"refused", "good", "no-answer", "not-read", "not-read", "not-read"};
  ASSERT_EQ(lines.size(), std::size(states));
  for (size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(words_of(lines[i])[2], states[i]) << lines[i];
    EXPECT_EQ(words_of(lines[i])[4] == "-", i != 1) << lines[i];
  }
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: 3 variables not read: 127.0.0.1:" + port_ + " does not answer\n"));
  const std::string other = " gives no valid reply\n";
  EXPECT_THAT(ask({"read", "Speed", "Total", "Table"}, {"--fault=garbage on=read times=always"}).err,
              EndsWith("plc-host: 1 variable not read: 127.0.0.1:" + port_ + other));
  EXPECT_THAT(ask({"read", "Speed", "Total", "Table"}, {"--fault=cut 7 on=read times=always"}).err,
              EndsWith("plc-host: 2 variables not read: 127.0.0.1:" + port_ + other));
  EXPECT_THAT(ask({"read", "Speed", "Total", "Table"}, {"--fault=refuse 257 on=directory times=always"}).err,
              EndsWith("plc-host: 1 variable not read: 127.0.0.1:" + port_ + " refuses requests\n"));
  EXPECT_THAT(ask({"write", "Speed=1", "Total=1", "Table[0]=1"}, {"--fault=garbage times=always"}).err,
              EndsWith("plc-host: 1 variable not written: 127.0.0.1:" + port_ + other));
  EXPECT_THAT(ask({"watch", "Speed", "--rounds", "1"}, {"--fault=cut 7 on=read times=always"}).err,
              StartsWith("plc-host: no values: Speed: 127.0.0.1:" + port_ +
                         ": only 7 bytes of the answer came within 1 s (3); asking on\n"));
  const Outcome json = ask({"read", "--json", "Speed", "Total"}, {"--fault=no-reply on=read times=always"});
  EXPECT_EQ(json.code, 7);
  const Json left_out = Json::parse(lines_of(json.out).at(1));
  EXPECT_EQ(left_out["state"], "not-read");
  EXPECT_TRUE(left_out["value"].is_null());
  EXPECT_EQ(left_out["reason"], "not read: 127.0.0.1:" + port_ + " does not answer");
  const Outcome csv =
      ask({"watch", "--rounds", "1", "--csv", "Speed", "Total"}, {"--fault=no-reply on=read times=always"});
  const std::string controller = "127.0.0.1:" + port_;
  EXPECT_THAT(lines_of(csv.out).at(1),
              EndsWith(",no-answer,Speed: " + controller +
                       ": no answer within 1 s (3); Total: not read: " + controller + " does not answer,,"));
  const Outcome text = ask({"watch", "--rounds", "1", "Speed", "Total"}, {"--fault=no-reply on=read times=always"});
  EXPECT_THAT(lines_of(text.out).at(1), HasSubstr(" not-read Total:"));
}

TEST_F(StateTest, SilentController_IsWrittenToOnce) {
  const Outcome outcome = ask({"write", "--json", "Speed=1", "Total=2"}, {"--fault=no-reply on=write times=always"});
  EXPECT_EQ(outcome.code, 7);
  const std::vector<std::string> lines = lines_of(outcome.out);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(Json::parse(lines[0])["state"], "no-answer");
  EXPECT_THAT(lines[0], HasSubstr("whether it was written is not known"));
  EXPECT_EQ(Json::parse(lines[1])["state"], "not-written");
  EXPECT_EQ(Json::parse(lines[0])["written"], nullptr);
  EXPECT_EQ(Json::parse(lines[0])["verified"], nullptr);
  EXPECT_EQ(Json::parse(lines[1])["written"], false);
  EXPECT_EQ(Json::parse(lines[1])["verified"], nullptr);
}

TEST_F(StateTest, WrittenButReadBackDifferent_IsNoValue) {
  const Outcome outcome = run_on_simulator({"write", "--verify", "--json", "--delay", "100", "Speed=-12345"},
                                           {"--animate", "--animate-ms=1"});
  EXPECT_EQ(outcome.code, 5);
  const Json result = Json::parse(outcome.out);
  EXPECT_EQ(result["state"], "different");
  EXPECT_TRUE(result["value"].is_null());
  EXPECT_THAT(result["reason"].get<std::string>(), StartsWith("wrote -12345, read back "));
  EXPECT_EQ(result["written"], true);
  EXPECT_EQ(result["verified"], false);
}

TEST_F(StateTest, CsvOfAControllerThatGoesAndComesBack_HasAGap) {
  std::unique_ptr<Child> simulator = start_simulator({"--sentinel"});
  Child watch(host_words(on_controller({"watch", "Speed", "Total", "--csv", "--interval", "20"})), path("out"),
              path("err"));
  EXPECT_TRUE(watch.wait_for(",good,,"));
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
  EXPECT_TRUE(watch.wait_for(",no-connection,"));
  simulator = start_simulator({"--sentinel"});
  EXPECT_TRUE(watch.wait_for("answers again after"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  size_t gaps = 0;
  std::vector<std::string> lines = lines_of(file_text(path("out")));
  EXPECT_EQ(lines.at(0), "time,state,reason,Speed,Total");
  for (size_t i = 1; i < lines.size(); ++i) {
    const std::vector<std::string> row = fields_of(lines[i]);
    ASSERT_EQ(row.size(), 5U) << lines[i];
    const bool good = row[1] == "good";
    EXPECT_EQ(row[2].empty(), good) << lines[i];
    // A connection that breaks in a round leaves that round one value.
    if (row[1] == "partial") {
      EXPECT_NE(row[3].empty(), row[4].empty()) << lines[i];
    } else {
      EXPECT_EQ(row[3].empty(), !good) << lines[i];
      EXPECT_EQ(row[4].empty(), !good) << lines[i];
    }
    gaps += good ? 0 : 1;
  }
  EXPECT_GT(gaps, 0U);
  simulator->close_input();
  EXPECT_EQ(simulator->wait(), 0);
}

TEST_F(StateTest, WhyWithTheGuardedBuild_DoesNotDoubtAValueThatItVouchesFor) {
  const Outcome torn = run_on_simulator({"why", "Table"}, {"--sentinel", "--fault=split 200 30 on=resolve"});
  EXPECT_EQ(torn.code, 0) << torn.out;
  EXPECT_THAT(torn.out, HasSubstr("\nbuild       1.1.0 guarded\nreturned    0\n"));
  EXPECT_THAT(torn.out, HasSubstr("\nWhat went wrong\n  nothing\n"));
  EXPECT_THAT(torn.out, HasSubstr("  - exchange 3 (resolve): the reply came in 2 pieces"));
  EXPECT_THAT(torn.out, Not(HasSubstr("not to be trusted")));
  const Outcome refused = ask({"why", "Limits"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_THAT(refused.out, HasSubstr("  1. exchange 3 (resolve): the controller refused Limits (global): status 0004"));
  EXPECT_THAT(refused.out, Not(HasSubstr("\nvalue ")));
}

// The driver would load the file with its first transfer: record 0 is another variable by then.
TEST_F(ProgramTest, TagFileReplacedBeforeTheControllerAnswers_GivesNoOtherVariablesValue) {
  const std::string speed = "Speed,INT,,,,,,0,1,0,0,,DM\n";
  const std::string steps = "Steps,INT,,,,,,0,1,0,0,,DM\n";
  write_file("machine.csv", speed + steps);
  write_file("panel.csv", speed + steps);
  Child watch(host_words({"watch", "Speed", "--address", "127.0.0.1", "--port", port_, "--tags", path("panel.csv"),
                          "--interval", "20", "--json"}),
              path("out"), path("err"));
  EXPECT_TRUE(watch.wait_for("\"value\":null"));
  write_file("panel.csv", steps + speed);
  const auto simulator = start_simulator();
  simulator->type("set Steps 22\nset Speed 11\n");
  EXPECT_TRUE(watch.wait_for("\"value\":11"));
  watch.signal(SIGINT);
  EXPECT_EQ(watch.wait(), 0);
  EXPECT_EQ(count_of(file_text(path("out")), "\"value\":22"), 0U);
}

}  // namespace
