// Programs of which the controller's directory has a beginning only: a name cut short, or another program's name.
#include "tests/client/controller/controller_fixture.h"

namespace plc_client_test {
namespace {

constexpr char kUsualAdvice[] =
    "The controller has \"Main\". If that is this program, its name cut short, write it so in column 12; else correct "
    "column 12.";

constexpr char kOtherAdvice[] = "Correct column 12 of its line: plc-host check FILE --live names similar programs.";

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
    expect_failed(controller, program + "/Step", missing_words(program), advice);
  }
  void expect_failed(Controller& controller, const std::string& name, const std::string& words,
                     const std::string& advice) {
    const Memory before = memory();
    for (const Verify verify : {Verify::kNone, Verify::kReadBack}) {
      const WriteResult written = controller.write(name, 9, verify);
      EXPECT_EQ(written.outcome, Outcome::kNotDone) << name;
      EXPECT_EQ(written.error.text, words + "; nothing was written");
      EXPECT_EQ(written.error.advice, advice);
    }
    EXPECT_TRUE(memory() == before) << name;
    Plan plan = controller.plan({name, name});
    for (const Reading& reading : {controller.read(name), controller.read(plan).at(1)}) {
      EXPECT_FALSE(reading.value.has_value()) << name;
      EXPECT_EQ(reading.error.reason, Reason::kFailed) << name;
      EXPECT_EQ(reading.error.text, words);
      EXPECT_EQ(reading.error.advice, advice);
    }
  }
};

TEST_F(CutProgramsTest, BeginningThatTheTagFileDeclaresToo_IsAnotherProgram) {
  Controller controller(with_programs({"Main2", "Main"}));
  expect_another(controller, "Main2", kOtherAdvice);
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

// Each of the two would be proof of the other one.
TEST_F(CutProgramsTest, TwoShortBeginningsOfOneLength_AreOtherPrograms) {
  start(tag_line("Step", "INT", "", "", "Main") + "Step,INT,,,,,,0,0,0,2,Pump\n");
  Controller controller(with_programs({"Main2", "Pump2"}));
  expect_another(controller, "Main2");
  expect_another(controller, "Pump2",
                 "The controller has \"Pump\". If that is this program, its name cut short, write it so in column 12; "
                 "else correct column 12.");
}

TEST_F(CutProgramsTest, ShortBeginningBesideAMissingBlank_IsAnotherProgram) {
  start(tag_line("Step", "INT", "", "", "Main") + "Step,INT,,,,,,0,0,0,2,Pump\n");
  Controller controller(with_programs({"Main2", "Pump "}));
  expect_another(controller, "Main2");
}

// The directory has one name for both.
TEST_F(CutProgramsTest, BeginningOfTwoDeclaredNames_IsNeitherOfThem) {
  start("Step,INT,,,,,,0,0,0,1,PackagingLineNor\n");
  const std::string north = "\"PackagingLineNorth\"";
  const std::string norway = "\"PackagingLineNorway\"";
  const auto words = [](const std::string& one, const std::string& other) {
    return "the controller's program \"PackagingLineNor\" may be " + one + " or " + other +
           ", each cut short: nobody knows which";
  };
  for (const char* profile : {"", "[directory]\nname_units = 16\n"}) {
    Controller controller(with_programs({"PackagingLineNorth", "PackagingLineNorway"}, profile));
    const std::string advice = "Write \"PackagingLineNor\" in column 12 of the lines of the one that it is.";
    expect_failed(controller, "PackagingLineNorth/Step", words(north, norway), advice);
    expect_failed(controller, "PackagingLineNorway/Step", words(norway, north), advice);
  }
  Controller alone(with_programs({"PackagingLineNorth"}));
  EXPECT_TRUE(alone.write("PackagingLineNorth/Step", 8, Verify::kReadBack).verified);
}

// The driver takes none of two beginnings.
TEST_F(CutProgramsTest, TwoBeginnings_AreOtherPrograms) {
  start("Step,INT,,,,,,0,0,0,1,Main\nStep,INT,,,,,,1,0,0,2,Main2\n");
  Controller controller(with_programs({"Main22", "Main2"}));
  expect_another(controller, "Main22", kOtherAdvice);
  Controller undeclared(with_programs({"Main22"}, "[directory]\nname_units = 5\n"));
  expect_another(undeclared, "Main22",
                 "The controller has \"Main2\". If that is this program, its name cut short, write it so in column 12; "
                 "else correct column 12.");
}

// The directory has one name twice.
TEST_F(CutProgramsTest, TwoProgramsOfOneCutName_AreOtherPrograms) {
  start("Step,INT,,,,,,0,0,0,1,PackagingLineNorth\nStep,INT,,,,,,1,0,0,2,PackagingLineNorway\n",
        {"--sentinel", "--profile", folder_.write("cut.toml", "[directory]\nname_units = 16\n")});
  Controller controller(with_programs({"PackagingLineNorth"}));
  expect_another(controller, "PackagingLineNorth", kOtherAdvice);
}

// The driver reads them with the number of their line.
TEST_F(CutProgramsTest, IndexedVariablesOfACutName_AreNeitherReadNorWritten) {
  start("Step,INT,,,,,,0,0,0,1,PackagingLineNor\n");
  Options options = with_programs({});
  options.tags = {folder_.write("indexed.csv",
                                "Step,INT,,,,,,262144,0,0,1,PackagingLineNorth\n"
                                "End,INT,,,,,,262145,0,0,1,PackagingLineNorth\n")};
  Controller controller(options);
  EXPECT_FALSE(controller.write("PackagingLineNorth/Step", 9).ok());
  EXPECT_EQ(requests(), 2U) << "those of the connect";
  expect_another(controller, "PackagingLineNorth",
                 "The controller has \"PackagingLineNor\". If that is this program, its name cut short, write it so "
                 "in column 12; else correct column 12.");
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
