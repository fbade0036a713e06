// What plc-host survey says of programs that are missing, of rounds that are lost, of answers that do not come, and of
// variables that change by themselves.
#include <filesystem>

#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

class SurveyFindingsTest : public SurveyTest {
 protected:
  // A survey of the running simulator by a tag file with these lines.
  Outcome survey(const std::string& tags, const std::vector<std::string>& more = {}) {
    write_file("tags.csv", tags);
    std::vector<std::string> words = {"survey",         "--address", "127.0.0.1:" + port_, "--tags",
                                      path("tags.csv"), "--output",  path("found"),        "--rate",
                                      "1000",           "--gentle"};
    words.insert(words.end(), more.begin(), more.end());
    return run(words);
  }
  // The first finding on a program.
  Json program() const { return report().at("programs").at("findings").at(0); }
  bool has_cut_names() const {
    return file_text(path("found/profile.toml")).find("\nname_units = ") != std::string::npos;
  }
};

constexpr char kOfMain[] = "Step,INT,,,,,,1,0,0,1,Main,DM\n";

TEST_F(SurveyFindingsTest, MissingProgram_IsSaidWithTheCodeForFindings) {
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
  const auto simulator = start_simulator();
  const Outcome outcome = survey("Speed,INT,,,,,,0,1,0,0,,DM\nStep,INT,,,,,,1,0,0,1,Packing,DM\n");
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(": 2 variables, 1 read, 0 refused, 1 not tried\n"
                                     "program \"Packing\": missing in the controller's directory\n"));
  const Outcome json = survey("Step,INT,,,,,,1,0,0,1,Packing,DM\n", {"--replace", "--json"});
  end(*simulator);
  EXPECT_EQ(json.code, 1);
  EXPECT_EQ(Json::parse(json.out).at("missing_programs"), Json{"Packing"});
}

TEST_F(SurveyFindingsTest, Command_IsWhatWasGivenSoThatItCanBeRepeated) {
  write_file("my machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
  const Outcome outcome =
      run({"survey", "--sim", path("my machine.csv"), "--simulator", PLC_HOST_SIMULATOR, "--sim-arg=--sentinel",
           "--output", path("found"), "--timeout", "3", "--rate", "900", "--write", "Speed", "--gentle"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const std::string command = report().at("command");
  EXPECT_THAT(command, StartsWith("plc-host survey --sim '" + path("my machine.csv") +
                                  "' --simulator " PLC_HOST_SIMULATOR " --sim-arg=--sentinel --output " +
                                  path("found") + " --rate 900 --timeout 3"));
  EXPECT_THAT(command, EndsWith(" --write Speed --gentle"));
}

TEST_F(SurveyFindingsTest, CommandWithoutOptions_ShowsNone) {
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
  const auto simulator = start_simulator();
  survey("Speed,INT,,,,,,0,1,0,0,,DM\n");
  end(*simulator);
  const std::string command = report().at("command");
  EXPECT_THAT(command, StartsWith("plc-host survey --address 127.0.0.1:" + port_ + " --tags " + path("tags.csv") +
                                  " --output " + path("found") + " --rate 1000"));
  EXPECT_THAT(command, Not(HasSubstr("--timeout")));
  EXPECT_THAT(command, Not(HasSubstr("--period")));
}

// A directory that has another program whose name is the beginning has cut nothing.
TEST_F(SurveyFindingsTest, ProgramWhoseNameBeginsWithAnother_IsMissingAndTeachesNoLength) {
  write_file("machine.csv", kOfMain);
  const auto simulator = start_simulator();
  const Outcome outcome = survey("Step,INT,,,,,,1,0,0,1,Main2,DM\n");
  EXPECT_EQ(outcome.code, 1);
  end(*simulator);
  EXPECT_EQ(program().at("state"), "missing");
  EXPECT_EQ(program().at("other"), "Main");
  EXPECT_FALSE(has_cut_names());
  EXPECT_THAT(
      file_text(path("found/report.html")),
      HasSubstr("<td>not in the controller&#39;s directory, which has &#39;Main&#39;, the beginning of its name: "
                "another program, or its name cut</td>"));
  EXPECT_THAT(
      outcome.out,
      HasSubstr("\nprogram \"Main2\": not in the controller's directory, which has 'Main', the beginning of its "
                "name: another program, or its name cut\n"));
}

// Two programs with short names may both be others.
TEST_F(SurveyFindingsTest, ShortBeginningsOfOneLength_AreMissingAndTeachNoLength) {
  write_file("machine.csv",
             "A,INT,,,,,,1,0,0,1,Main,DM\nB,INT,,,,,,2,0,0,2,FillingNorth,DM\n"
             "C,INT,,,,,,3,0,0,3,PackingSouth,DM\n");
  write_file("cut.toml", "[directory]\nname_units = 8\n");
  const auto simulator = start_simulator({"--profile", path("cut.toml")});
  EXPECT_EQ(survey(file_text(path("machine.csv"))).code, 1);
  end(*simulator);
  const Json findings = report().at("programs").at("findings");
  EXPECT_EQ(findings.at(0).at("state"), "missing");
  EXPECT_EQ(findings.at(0).at("other"), "FillingN");
  EXPECT_EQ(findings.at(1).at("state"), "found");
  EXPECT_EQ(findings.at(2).at("state"), "missing");
  EXPECT_EQ(findings.at(2).at("other"), "PackingS");
  EXPECT_FALSE(has_cut_names());
}

TEST_F(SurveyFindingsTest, LongBeginningOfTwoScopes_IsNeitherOfThem) {
  write_file("machine.csv", "A,INT,,,,,,1,0,0,1,PackagingLineNor,DM\n");
  const auto simulator = start_simulator();
  EXPECT_EQ(survey("A,INT,,,,,,1,0,0,1,PackagingLineNorth,DM\nA,INT,,,,,,2,0,0,1,PackagingLineNorway,DM\n").code, 1);
  end(*simulator);
  EXPECT_EQ(report().at("programs").at("findings").at(0).at("state"), "missing");
  EXPECT_EQ(report().at("programs").at("findings").at(1).at("state"), "missing");
  EXPECT_FALSE(has_cut_names());
}

TEST_F(SurveyFindingsTest, LongestNameOfTheDirectory_IsCutByItself) {
  const std::string tags = "A,INT,,,,,,1,0,0,1,Main,DM\nB,INT,,,,,,2,0,0,2,PackagingLineStationSeven,DM\n";
  write_file("machine.csv", tags);
  write_file("cut.toml", "[directory]\nname_units = 16\n");
  const auto simulator = start_simulator({"--profile", path("cut.toml")});
  EXPECT_EQ(survey(tags).code, 0);
  end(*simulator);
  EXPECT_EQ(report().at("programs").at("findings").at(1).at("state"), "cut");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nname_units = 16  # "));
}

// Two programs are one in such a directory. The first one would answer for the other.
TEST_F(SurveyFindingsTest, ProgramsCutToOneName_AreNotAskedAndTheGuardedBuildRefusesThem) {
  const std::string one = "A,INT,,,,,,1,0,0,1,MainControlOfPressNumber1,DM\n";
  const std::string other = "B,INT,,,,,,2,0,0,2,MainControlOfPressNumber2,DM\n";
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n" + one + other);
  write_file("cut.toml", "[directory]\nname_units = 20\n");
  const auto simulator = start_simulator({"--sentinel", "--profile", path("cut.toml")});
  const Outcome outcome = survey("Speed,INT,,,,,,0,1,0,0,,DM\n" + one, {"--driver", "guarded"});
  const Outcome read = run(
      {"read", "--address", "127.0.0.1:" + port_, "--tags", path("tags.csv"), "--driver", "guarded", "--verbose", "A"});
  end(*simulator);
  EXPECT_THAT(read.out + read.err, HasSubstr("guard: program of the variable is ambiguous"));
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(
      outcome.out,
      HasSubstr("\nprogram \"MainControlOfPressNumber1\": not in the controller's directory, which has 2 programs "
                "called 'MainControlOfPressNu', the beginning of its name: nobody can tell them apart\n"));
  const Json found = report();
  EXPECT_EQ(found.at("variables").at("findings").at(1).at("state"), "not tried");
  EXPECT_EQ(found.at("guarded").at("because"),
            "Every reply keeps the rules of the guarded build. The guarded build refuses the variables of "
            "MainControlOfPressNumber1: the directory has several beginnings of this name, and not the whole.");
  EXPECT_EQ(found.at("questions").at(0).at("question"),
            "Which of the 2 programs of this name is meant? The survey asked none of them.");
  EXPECT_EQ(
      found.at("questions").at(1).at("question"),
      "Is there such a program? The directory does not name it; it has MainControlOfPressNu, the beginning of its "
      "name: is that another program, or its name cut? The guarded build refuses its variables: the directory has "
      "the beginning of its name 2 times, and not the whole.");
}

// Where nobody can tell that they are cut, no name is longer all the same.
TEST_F(SurveyFindingsTest, ProfileOfNamesCutSoon_GivesTheSameDirectoryAgain) {
  const std::string tags = "A,INT,,,,,,1,0,0,1,Main,DM\nB,INT,,,,,,2,0,0,2,FillingNorth,DM\n";
  for (const char* units : {"4", "6"}) {
    write_file("machine.csv", tags);
    write_file("cut.toml", std::string("[directory]\nname_units = ") + units + "\n");
    std::string profile = path("cut.toml");
    Json programs[2];
    for (Json& found : programs) {
      const auto simulator = start_simulator({"--profile", profile});
      EXPECT_EQ(survey(tags, {"--replace"}).code, 1) << units;
      end(*simulator);
      found = report().at("programs");
      EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr(std::string("\nlongest_units = ") + units + "  # "));
      write_file("learnt.toml", file_text(path("found/profile.toml")));
      profile = path("learnt.toml");
    }
    EXPECT_EQ(programs[0], programs[1]) << units;
  }
}

// A folder with the programs and one build of the driver, laid out as they are installed.
class SurveyInstalledTest : public SurveyTest {
 protected:
  void install(const char* build, const std::string& place) {
    namespace files = std::filesystem;
    files::create_directories(path("prefix/bin"));
    files::create_directories(files::path(path(place)).parent_path());
    files::copy_file(PLC_HOST_PROGRAM, path("prefix/bin/plc-host"));
    files::copy_file(build, path(place));
  }
  Outcome survey_from_there(const std::string& profile) {
    write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
    write_file("imitated.toml", profile);
    return run_words({path("prefix/bin/plc-host"), "survey", "--sim", path("machine.csv"), "--simulator",
                      PLC_HOST_SIMULATOR, "--sim-arg=--profile=" + path("imitated.toml"), "--output", path("found"),
                      "--rate", "1000", "--gentle", "-q"});
  }
};

TEST_F(SurveyInstalledTest, ContractBuildAlone_SaysThatTheGuardedOneHasToBeInstalled) {
  install(PLC_HOST_LIBRARY, "prefix/lib/libplc_driver.so.1");
  const Outcome outcome = survey_from_there("");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const std::string note =
      "No guarded build of the driver is installed here, and none was tried: install it before you set it, or give the "
      "path of one as the driver (--driver PATH).";
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\nwarning: " + note + "\nset driver: guarded\n"));
  const Json found = report();
  EXPECT_EQ(found.at("variables").at("compared_with"), "1.1.0 contract");
  EXPECT_EQ(found.at("recommendations").at(0).at("because"),
            "Every reply keeps the rules of the guarded build. " + note);
  EXPECT_THAT(file_text(path("found/report.html")), HasSubstr("<p class=\"verdict bad\">" + note + "</p>"));
}

// The loader takes the guarded build for both, which have one name.
TEST_F(SurveyInstalledTest, GuardedBuildAlone_IsNotComparedWhereItDoesNotRead) {
  install(PLC_HOST_GUARDED, "prefix/lib/plc_driver/guarded/libplc_driver.so.1");
  const Outcome outcome = survey_from_there("[replies]\nsequence = \"zero\"\n");
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              HasSubstr("\nwarning: No contract build of the driver is installed here, and none was tried: "));
  const Json variables = report().at("variables");
  EXPECT_EQ(variables.at("not_compared"),
            "no contract build of the driver is installed here, and the guarded one does not read it");
  EXPECT_EQ(variables.at("findings").at(0).at("state"), "good");
}

// The controller gets another program while the survey is made.
TEST_F(SurveyFindingsTest, DirectoryThatChanges_IsToldAndAsked) {
  std::string tags = kOfMain;
  for (int i = 2; i < 12; ++i) tags += "V" + std::to_string(i) + ",INT,,,,,," + std::to_string(i) + ",1,0,0,,DM\n";
  write_file("tags.csv", tags);
  write_file("machine.csv", tags);
  auto simulator = start_simulator();
  Child survey(host_words({"survey", "--address", "127.0.0.1:" + port_, "--tags", path("tags.csv"), "--output",
                           path("found"), "--gentle", "--rate", "25"}),
               path("out"), path("err"));
  EXPECT_TRUE(survey.wait_for("survey: step 3"));
  end(*simulator);
  write_file("machine.csv", tags + "Other,INT,,,,,,20,0,0,2,Packing,DM\n");
  simulator = start_simulator();
  survey.wait();
  end(*simulator);
  EXPECT_EQ(report().at("found").at(2),
            "Its directory names 1 program, and has all that the tag files name. It changed between connects, once.");
  EXPECT_EQ(report().at("questions").at(0).at("question"),
            "Why does the directory of programs change? It did so from one connect to the next, while the survey was "
            "made.");
}

constexpr char kTwo[] = "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,1,1,0,0,,DM\n";

TEST_F(SurveyFindingsTest, LostRounds_AreSaidWithTheCodeForFindings) {
  write_file("machine.csv", kTwo);
  // The other steps send fewer of them.
  const auto simulator = start_simulator({"--sentinel", "--fault", "refuse 25 on=read after=80"});
  const Outcome outcome = survey(kTwo, {"--hours", "0.001", "--period", "10", "-q"});
  end(*simulator);
  EXPECT_EQ(outcome.code, 1) << outcome.out;
  const Json hours = report().at("hours");
  EXPECT_EQ(hours.at("losses"), 1);
  EXPECT_EQ(hours.at("lost_values"), 2);
  EXPECT_GT(hours.at("longest_gap_ms"), 0.0);
  EXPECT_THAT(outcome.out, HasSubstr("\nhours: 1 of " + hours.at("rounds").dump() +
                                     " rounds of reads lost, 2 values not read, the longest gap 0.0 s\n"));
}

TEST_F(SurveyFindingsTest, HoursWithoutALoss_SayThat) {
  write_file("machine.csv", kTwo);
  const auto simulator = start_simulator({"--sentinel"});
  const Outcome outcome = survey(kTwo, {"--hours", "0.0003", "--period", "100", "-q"});
  end(*simulator);
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr(" rounds of reads, none lost\n"));
  EXPECT_EQ(report().at("hours").at("longest_gap_ms"), nullptr);
}

TEST_F(SurveyFindingsTest, AnswersThatDoNotCome_CountForTheTimeOutAndMakeNoFindingOnAVariable) {
  write_file("machine.csv", kTwo);
  const auto simulator = start_simulator(
      {"--sentinel", "--fault", "no-reply on=read times=1", "--fault", "no-reply on=resolve after=9 times=1"});
  const Outcome outcome = survey(kTwo, {"--timeout", "1"});
  end(*simulator);
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr("\nset timeout_s: 5\n"));
  const Json found = report();
  EXPECT_THAT(found.at("recommendations").at(1).at("because").get<std::string>(),
              HasSubstr(", and 2 requests had no answer within 1000 ms: five times that wait"));
  EXPECT_THAT(found.at("recommendations").at(2).at("because").get<std::string>(),
              HasSubstr("; 2 requests had no answer. Whether a pause helps against that was not tried"));
  EXPECT_EQ(found.at("limits").at("names_per_request"), nullptr);
  EXPECT_EQ(found.at("questions").at(0).at("about"), "requests without an answer");
}

// It is lost on the way to the driver, which reads when the survey has all values.
TEST_F(SurveyFindingsTest, AnswerThatTheDriverDoesNotGet_MakesNoFindingOnAVariable) {
  write_file("machine.csv", kTwo);
  const auto simulator = start_simulator({"--sentinel", "--fault", "no-reply on=read after=3 times=1"});
  const Outcome outcome = survey(kTwo, {"--timeout", "1"});
  end(*simulator);
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  const Json variables = report().at("variables");
  EXPECT_EQ(variables.at("not_compared"), nullptr);
  EXPECT_EQ(report().at("heads").at("unanswered"), 0);
  for (const Json& finding : variables.at("findings")) EXPECT_EQ(finding.at("why"), nullptr);
}

// Its first piece says nothing of its end yet.
TEST_F(SurveyFindingsTest, RepliesInSmallPiecesWithLongPauses_AreWhole) {
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
  const auto simulator = start_simulator({"--sentinel", "--fault", "split 7 80 times=3"});
  const Outcome outcome = survey("Speed,INT,,,,,,0,1,0,0,,DM\n");
  end(*simulator);
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n"));
}

TEST_F(SurveyFindingsTest, VariablesThatChange_AreNoneThatAreMisread) {
  std::string tags;
  for (int i = 0; i < 16; ++i) {
    tags += "Bit" + std::to_string(i) + ",BOOL,,,,,," + std::to_string(i) + ",1,0,0,,MR\n";
  }
  write_file("machine.csv", tags);
  const auto simulator = start_simulator({"--animate-ms", "7"});
  const Outcome outcome = survey(tags);
  end(*simulator);
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  size_t changing = 0;
  const Json found = report();
  for (const Json& finding : found.at("variables").at("findings")) {
    EXPECT_EQ(finding.at("state"), "good") << finding;
    if (finding.at("changes") == true) ++changing;
  }
  EXPECT_GT(changing, 0U);
  EXPECT_THAT(found.at("found").at(3).get<std::string>(), HasSubstr("by themselves)"));
}

}  // namespace
