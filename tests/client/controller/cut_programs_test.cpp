// Programs of which the controller's directory has a beginning only: a name cut short, or another program's name.
#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

constexpr char kUsualAdvice[] =
    "The controller has \"Main\". If that is this program, its name cut short, write it so in column 12; else correct "
    "column 12.";

std::string missing_words(const std::string& program) {
  return "the controller has no program \"" + program + "\": what answers may be another program's variable";
}

// The controller has Main, with 7 in its Step, and Packaging.
class CutProgramsTest : public ControllerTest {
 protected:
  void SetUp() override {
    start(tag_line("Step", "INT", "", "", "Main") + "Step,INT,,,,,,0,0,0,2,Packaging\n" + tag_line("Speed", "INT"));
    sim_->tell("set Main/Step 7");
  }
  Options with_programs(const std::vector<std::string>& programs, const std::string& profile = "") {
    std::string lines;
    for (const std::string& program : programs) lines += tag_line("Step", "INT", "", "", program);
    Options options = ControllerTest::options();
    options.tags = {folder_.write("host.csv", lines)};
    if (!profile.empty()) options.profile = folder_.write("press1.toml", profile);
    return options;
  }
  // Neither read, alone or among others, nor written.
  void expect_another(Controller& controller, const std::string& program, const std::string& advice = kUsualAdvice) {
    const Memory before = memory();
    const std::string name = program + "/Step";
    const WriteResult written = controller.write(name, 9, Verify::kReadBack);
    EXPECT_EQ(written.outcome, Outcome::kNotDone) << name;
    EXPECT_EQ(written.error.text, missing_words(program) + "; nothing was written");
    EXPECT_EQ(written.error.advice, advice);
    EXPECT_TRUE(memory() == before) << name;
    Plan plan = controller.plan({name, name});
    for (const Reading& reading : {controller.read(name), controller.read(plan).at(1)}) {
      EXPECT_FALSE(reading.value.has_value()) << name;
      EXPECT_EQ(reading.error.reason, Reason::kFailed) << name;
      EXPECT_EQ(reading.error.text, missing_words(program));
      EXPECT_EQ(reading.error.advice, advice);
    }
  }
};

TEST_F(CutProgramsTest, BeginningThatTheTagFileDeclaresToo_IsAnotherProgram) {
  Controller controller(with_programs({"Main2", "Main"}));
  expect_another(controller, "Main2");
  EXPECT_EQ(controller.read("Main/Step").value.as<int>(), 7);
  EXPECT_TRUE(controller.write("Main/Step", 8, Verify::kReadBack).verified);
}

TEST_F(CutProgramsTest, BeginningBesideALongerWholeName_IsAnotherProgram) {
  Controller controller(with_programs({"Main2", "Packaging"}));
  expect_another(controller, "Main2");
  EXPECT_TRUE(controller.read("Packaging/Step").ok());
}

TEST_F(CutProgramsTest, BeginningBesideALongerBeginning_IsAnotherProgram) {
  Controller controller(with_programs({"Main2", "Packaging2"}));
  expect_another(controller, "Main2");
}

TEST_F(CutProgramsTest, ShortBeginningOfTheOnlyName_IsAnotherProgram) {
  Controller controller(with_programs({"Main2"}));
  expect_another(controller, "Main2");
}

TEST_F(CutProgramsTest, BeginningsOfOneName_AreAnotherProgram) {
  Controller controller(with_programs({"Main2", "Main3"}));
  expect_another(controller, "Main2");
  expect_another(controller, "Main3");
}

TEST_F(CutProgramsTest, TwoNamesCutAtOneLength_AreTaken) {
  start(tag_line("Step", "INT", "", "", "Main") + "Step,INT,,,,,,0,0,0,2,Fill\n");
  sim_->tell("set Main/Step 7");
  sim_->tell("set Fill/Step 8");
  Controller controller(with_programs({"Mainly", "Filling"}));
  EXPECT_EQ(controller.read("Mainly/Step").value.as<int>(), 7);
  EXPECT_EQ(controller.read("Filling/Step").value.as<int>(), 8);
}

TEST_F(CutProgramsTest, BeginningOfAnotherLengthThanTheProfilesCut_IsAnotherProgram) {
  Controller controller(with_programs({"Main2"}, "[directory]\nname_units = 20\n"));
  expect_another(controller, "Main2");
  Controller cutting(with_programs({"Main2"}, "[directory]\nname_units = 4\n"));
  EXPECT_EQ(cutting.read("Main2/Step").value.as<int>(), 7);
}

TEST_F(CutProgramsTest, BeginningShorterThanANameOfTheProfilesDirectory_IsAnotherProgram) {
  Controller controller(with_programs({"Main2"}, "[directory]\nlongest_units = 9\n"));
  expect_another(controller, "Main2");
}

TEST_F(CutProgramsTest, BlankBehindTheName_IsNamed) {
  Controller controller(with_programs({"Main "}));
  expect_another(controller, "Main ",
                 "Remove the blanks at the end of column 12 of its line: the controller has \"Main\".");
}

TEST_F(CutProgramsTest, NamesCutAtOneLength_AreTakenBesideShorterWholeOnes) {
  const std::string tags = tag_line("Step", "INT", "", "", "FillingStationNumberOne") +
                           "Step,INT,,,,,,0,0,0,2,PackagingLineStationSeven\nStep,INT,,,,,,0,0,0,3,Main\n";
  start(tags, {"--sentinel", "--profile", folder_.write("cut.toml", "[directory]\nname_units = 20\n")});
  sim_->tell("set FillingStationNumberOne/Step 11");
  sim_->tell("set PackagingLineStationSeven/Step 12");
  sim_->tell("set Main/Step 13");
  Options options = ControllerTest::options();
  for (const char* profile : {"", "[directory]\nname_units = 20\nlongest_units = 20\n"}) {
    options.profile = *profile == '\0' ? "" : folder_.write("press1.toml", profile);
    Controller controller(options);
    EXPECT_EQ(controller.read("FillingStationNumberOne/Step").value.as<int>(), 11);
    EXPECT_EQ(controller.read("PackagingLineStationSeven/Step").value.as<int>(), 12);
    EXPECT_EQ(controller.read("Main/Step").value.as<int>(), 13);
    EXPECT_TRUE(controller.write("FillingStationNumberOne/Step", 11, Verify::kReadBack).verified);
  }
}

TEST_F(CutProgramsTest, ProgramsOfAnotherArea_AreOfTheSameController) {
  Options options = with_programs({"Main2"});
  const plc_test::TempDir areas;
  areas.write("PLC7F000001_0.csv", tag_line("Step", "INT", "", "", "Main2"));
  areas.write("PLC7F000001_1.csv", "Step,INT,,,,,,0,0,0,2,Packaging\n");
  options.tags = {areas.path()};
  Controller controller(options);
  expect_another(controller, "Main2");
}

// Asking the driver costs the controller nothing.
TEST_F(CutProgramsTest, Asking_SendsNothing) {
  std::vector<std::string> programs = {"Main2"};
  for (int i = 0; i < 80; ++i) programs.push_back("Program" + std::to_string(i));
  Controller controller(with_programs(programs, "[directory]\nname_units = 4\n"));
  EXPECT_EQ(controller.read("Main2/Step").value.as<int>(), 7);
  const unsigned long before = requests();
  EXPECT_TRUE(controller.write("Main2/Step", 9).ok());
  EXPECT_EQ(requests(), before + 2);
}

}  // namespace
}  // namespace plc_client_test
