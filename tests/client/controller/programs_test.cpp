// Variables of programs that the controller does not have: their names would be answered by another program.
#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

using testing::HasSubstr;

constexpr char kMissing[] = "the controller has no program \"Filing\": what answers may be another program's variable";
constexpr char kAdvice[] = "Correct column 12 of its line: plc-host check FILE --live names similar programs.";

// The controller has Main, of number 1, and the host's file Filing with the same number.
class ProgramsTest : public ControllerTest {
 protected:
  void SetUp() override {
    start(tag_line("Step", "INT", "", "", "Main") + tag_line("Table", "DINT", "[0..9]", "", "Main") +
          tag_line("Text", "STRING", "", "40", "Main") + tag_line("Speed", "INT"));
    host_file_ = folder_.write(
        "host.csv", tag_line("Step", "INT", "", "", "Filing") + tag_line("Speed", "INT") +
                        tag_line("Step", "INT", "", "", "Main") + tag_line("Table", "DINT", "[0..9]", "", "Filing") +
                        tag_line("Text", "STRING", "", "40", "Filing") + tag_line("Nothing", "INT", "", "", "Filing"));
  }
  Options with_host_file() {
    Options options = ControllerTest::options();
    options.tags = {host_file_};
    return options;
  }

  std::string host_file_;
};

void expect_missing(const Reading& reading, const std::string& text = kMissing, const std::string& advice = kAdvice) {
  EXPECT_FALSE(reading.ok()) << reading.name;
  EXPECT_FALSE(reading.value.has_value()) << reading.name;
  EXPECT_EQ(reading.error.reason, Reason::kFailed) << reading.name;
  EXPECT_EQ(reading.error.text, text) << reading.name;
  EXPECT_EQ(reading.error.advice, advice) << reading.name;
}

TEST_F(ProgramsTest, VariablesOfAMissingProgram_HaveNoValue) {
  sim_->tell("set Main/Step 7");
  Controller controller(with_host_file());
  for (const char* name : {"Filing/Step", "Filing/Table", "Filing/Table[3]", "Filing/Text", "Filing/Nothing"}) {
    expect_missing(controller.read(name));
  }
  EXPECT_EQ(controller.read("Main/Step").value.as<int>(), 7);
  expect_no_refusal_of_the_guard();
}

TEST_F(ProgramsTest, ListWithAMissingProgram_HasTheValuesOfTheOthers) {
  sim_->tell("set Main/Step 7");
  Controller controller(with_host_file());
  Plan plan = controller.plan({"Filing/Step", "Filing/Table", "Speed", "Main/Step", "Filing/Nothing"});
  for (int run = 0; run < 3; ++run) {
    const std::vector<Reading>& readings = controller.read(plan);
    expect_missing(readings.at(0));
    expect_missing(readings.at(1));
    EXPECT_TRUE(readings.at(2).ok()) << readings.at(2).error.text;
    EXPECT_EQ(readings.at(3).value.as<int>(), 7);
    expect_missing(readings.at(4));
  }
}

// Controllers cut names short: the driver takes a long beginning for the name, but in batches and for indexed ids.
TEST_F(ProgramsTest, ProgramWhoseNameIsTheBeginning_IsTakenWhereTheDriverTakesIt) {
  const std::string others = "Step,INT,,,,,,0,0,0,2,Other\nTwo,INT,,,,,,0,0,0,2,Other\n";
  start(tag_line("Step", "INT", "", "", "FillingStation_No") + tag_line("Two", "INT", "", "", "FillingStation_No") +
        others);
  for (const char* line :
       {"set FillingStation_No/Step 7", "set FillingStation_No/Two 8", "set Other/Step 99", "set Other/Two 99"}) {
    sim_->tell(line);
  }
  // The number of their lines is that of Other.
  host_file_ =
      folder_.write("host.csv", "Step,INT,,,,,,0,0,0,2,FillingStation_No1\nTwo,INT,,,,,,0,0,0,2,FillingStation_No1\n");
  Controller controller(with_host_file());
  EXPECT_EQ(controller.read("FillingStation_No1/Step").value.as<int>(), 7);
  EXPECT_TRUE(controller.write("FillingStation_No1/Step", 9, Verify::kReadBack).verified);
  Plan plan = controller.plan({"FillingStation_No1/Step", "FillingStation_No1/Two"});
  for (int run = 0; run < 4; ++run) {
    const std::vector<Reading>& readings = controller.read(plan);
    EXPECT_EQ(readings.at(0).value.as<int>(), 9);
    EXPECT_EQ(readings.at(1).value.as<int>(), 8);
  }
  EXPECT_EQ(memory().bits("Other/Step", 16).at(0), 99U);
}

TEST_F(ProgramsTest, ProgramWhoseNameIsTheBeginning_IsNotThatOfIndexedIds) {
  host_file_ = folder_.write("indexed.csv",
                             "Step,INT,,,,,,262144,0,0,1,Mainly\nTwo,INT,,,,,,262145,0,0,1,Mainly\n"
                             "Speed,INT,,,,,,262146,1,0,0,\nSpeed2,INT,,,,,,262147,1,0,0,\n");
  Controller controller(with_host_file());
  for (const Reading& reading : controller.read({"Mainly/Step", "Mainly/Two"})) {
    expect_missing(
        reading, "the controller has no program \"Mainly\": what answers may be another program's variable",
        "The controller has \"Main\". If that is this program, its name cut short, write it so in column 12; else "
        "correct column 12.");
  }
}

TEST_F(ProgramsTest, WriteToAMissingProgram_IsNotSent) {
  const Memory before = memory();
  Controller controller(with_host_file());
  for (const Verify verify : {Verify::kNone, Verify::kReadBack}) {
    const WriteResult result = controller.write("Filing/Step", 9, verify);
    EXPECT_EQ(result.outcome, Outcome::kNotDone);
    EXPECT_FALSE(result.verified);
    EXPECT_EQ(result.error.reason, Reason::kFailed);
    EXPECT_EQ(result.error.text, std::string(kMissing) + "; nothing was written");
    EXPECT_EQ(result.error.advice, kAdvice);
  }
  EXPECT_EQ(requests(), 2U) << "but for the directory of the connect nothing was asked";
  EXPECT_TRUE(controller.state().connected);
  EXPECT_TRUE(memory() == before);
  EXPECT_EQ(controller.write("Main/Step", 9, Verify::kReadBack).outcome, Outcome::kDone);
}

TEST_F(ProgramsTest, WriteWithoutAConnection_SaysWhyAsItDoesOfGlobalVariables) {
  sim_->tell("fault gone");
  Controller controller(with_host_file());
  const WriteResult result = controller.write("Main/Step", 9);
  EXPECT_EQ(result.outcome, Outcome::kNotDone);
  EXPECT_EQ(result.error.reason, Reason::kNoConnection);
  EXPECT_THAT(result.error.text, HasSubstr("refused: nothing listens on 127.0.0.1:"));
  EXPECT_EQ(controller.state().calls, 1U);
  EXPECT_EQ(controller.state().failures[static_cast<size_t>(Reason::kNoConnection)], 1U);
}

TEST_F(ProgramsTest, AnswerOfAnEarlierConnection_IsForgotten) {
  Controller controller(with_host_file());
  EXPECT_TRUE(controller.read("Main/Step").ok());
  expect_missing(controller.read("Filing/Step"));
  const std::string place = "127.0.0.1:" + std::to_string(sim_->port());
  EXPECT_EQ(sim_->finish(), 0);
  start(tag_line("Step", "INT", "", "", "Filing"), {"--sentinel", "--listen", place});
  EXPECT_TRUE(controller.read("Filing/Step").ok());
  expect_missing(controller.read("Main/Step"),
                 "the controller has no program \"Main\": what answers may be another program's variable");
}

TEST_F(ProgramsTest, IndexedIds_AreComparedToo) {
  host_file_ = folder_.write("indexed.csv",
                             "Step,INT,,,,,,262144,0,0,1,Filing\nStep,INT,,,,,,262145,0,0,1,Main\n"
                             "Speed,INT,,,,,,262146,1,0,0,\nSpeed2,INT,,,,,,262147,1,0,0,\n");
  Controller controller(with_host_file());
  expect_missing(controller.read("Filing/Step"));
  EXPECT_EQ(controller.write("Filing/Step", 9).outcome, Outcome::kNotDone);
  EXPECT_TRUE(controller.read("Main/Step").ok());
  EXPECT_TRUE(controller.read("Speed").ok());
}

TEST_F(ProgramsTest, AreasOfTagFiles_StayTheirs) {
  Options last = with_host_file();
  last.area = UINT16_MAX;
  Controller controller(last);
  expect_missing(controller.read("Filing/Step"));
  EXPECT_TRUE(controller.read("Main/Step").ok());
  EXPECT_TRUE(controller.read("Speed").ok());
}

TEST_F(ProgramsTest, LineWithoutAProgram_GoesByItsNumberAlone) {
  host_file_ = folder_.write("numbered.csv", "Step,INT,,,,,,0,0,0,1,\n");
  Controller controller(with_host_file());
  ASSERT_EQ(controller.tags().size(), 1U);
  EXPECT_TRUE(controller.read(controller.tags().front().name).ok());
}

TEST_F(ProgramsTest, ContractBuild_CannotTell) {
  sim_->tell("set Main/Step 7");
  Options contract = with_host_file();
  contract.driver = PLC_TEST_CONTRACT;
  Controller controller(contract);
  const Reading reading = controller.read("Filing/Step");
  EXPECT_EQ(reading.quality, Quality::kUnguarded);
  EXPECT_EQ(reading.value.as<int>(), 7);
}

}  // namespace
}  // namespace plc_client_test
