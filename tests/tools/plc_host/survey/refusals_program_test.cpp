// What plc-host survey says of variables that the driver cannot be asked for, of refusals that come and go, and of
// replies that lack something without refusing it.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/tools/plc_host/survey/own_server.h"
#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

class SurveyRefusalsTest : public SurveyTest {
 protected:
  // A survey of a simulator with the variables of the lines.
  Outcome survey(const std::string& tags, const std::vector<std::string>& simulator_options,
                 const std::vector<std::string>& more = {}) {
    write_file("machine.csv", tags);
    const auto simulator = start_simulator(simulator_options);
    std::vector<std::string> all = words({"--gentle", "--rate", "1000", "--timeout", "1", "-q", "--replace"});
    all.insert(all.end(), more.begin(), more.end());
    const Outcome outcome = run(all);
    end(*simulator);
    return outcome;
  }
  Json finding(size_t at) const { return report().at("variables").at("findings").at(at); }
  // What is asked about the subject; "" where nothing is.
  std::string question_on(const std::string& about) const {
    const Json found = report();
    for (const Json& one : found.at("questions")) {
      if (one.at("about") == about) return one.at("question");
    }
    return {};
  }
};

TEST_F(SurveyRefusalsTest, VariableThatTheDriverCannotBeAskedFor_IsNotComparedAndNotAsDeclared) {
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nTable,INT,[0..9],,,,,1,1,0,0,,DM\n");
  write_file("reversed.csv", "Speed,INT,,,,,,0,1,0,0,,DM\nTable,INT,[9..0],,,,,1,1,0,0,,DM\n");
  const auto simulator = start_simulator({"--sentinel"});
  std::vector<std::string> all = words({"--gentle", "--rate", "1000", "-q"});
  all.at(4) = path("reversed.csv");
  const Outcome outcome = run(all);
  end(*simulator);
  EXPECT_EQ(outcome.code, 1) << outcome.out;
  EXPECT_THAT(outcome.out, HasSubstr(": 2 variables, 1 read, 0 refused, 1 otherwise: see the report\n"
                                     "not compared with what the driver gives: Table: see the report\n"));
  EXPECT_EQ(finding(1).at("state"), "not compared");
  EXPECT_THAT(finding(1).at("why").get<std::string>(), StartsWith("plc-host read cannot ask for it: "));
  EXPECT_THAT(report().at("found").at(3).get<std::string>(),
              HasSubstr("1 were read as declared, 1 not compared with what the driver gives (Table)."));
  EXPECT_THAT(question_on("Table"), StartsWith("Can the tag file declare it otherwise? "));
}

constexpr char kWordAndDouble[] = "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,2,1,0,0,,DM\n";

TEST_F(SurveyRefusalsTest, ValueReplyWithoutAValueAndWithTheStatusOfSuccess_HasTooFewBytes) {
  // Down to the head, with status 0000.
  survey("Speed,INT,,,,,,0,1,0,0,,DM\n", {"--sentinel", "--fault", "short 2 times=always on=read"});
  EXPECT_EQ(finding(0).at("state"), "too short");
  EXPECT_EQ(finding(0).at("why"), "the reply has 0 bytes where INT takes 2");
  EXPECT_THAT(file_text(path("found/profile.toml")), Not(HasSubstr("[[refused]]")));
  EXPECT_NE(question_on("values that are missing"), "");
}

TEST_F(SurveyRefusalsTest, ValueReplyWithoutAValueAndWithAnotherStatus_Refuses) {
  survey("Speed,INT,,,,,,0,1,0,0,,DM\n", {"--sentinel", "--fault", "refuse 25 times=always on=read"});
  EXPECT_EQ(finding(0).at("state"), "refused");
  EXPECT_EQ(finding(0).at("why"), "its name is known, its value is refused, status 0x0019");
}

constexpr char kRefusedValue[] =
    "\n# A declared variable whose name the controller knows. It refuses the value, with this shape and status.\n"
    "[[refused]]\nname = \"Speed\"\nwhat = \"value\"\nshape = \"short\"\nstatus = 0x0019\n";

// Zeros with the status of success: no reply tells them from values, but the batch does.
TEST_F(SurveyRefusalsTest, ValuesThatBatchesGiveOtherwise_LeaveNoBuildUsable) {
  write_file("refuses.toml", "[[refused]]\nname = \"Limit\"\nwhat = \"value\"\nshape = \"full\"\nstatus = 0x0\n");
  const std::string tags = "Speed,INT,,,,,,0,1,0,0,,DM\nLimit,INT,,,,,,1,1,0,0,,DM\n";
  EXPECT_EQ(survey(tags, {"--sentinel", "--profile", path("refuses.toml")}).code, 1);
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "not known");
  EXPECT_EQ(
      found.at("guarded").at("because"),
      "Every reply keeps the rules of the guarded build. But 1 variable has another value in a batch than singly, "
      "each time: no build of the driver tells which one is wrong.");
  EXPECT_THAT(question_on("Speed"), StartsWith("Why has it another value when several variables are asked for at a "
                                               "time? It was read singly "));
  const std::string profile = file_text(path("found/profile.toml"));
  EXPECT_THAT(profile, HasSubstr("\nbatch_names = 1"));
  EXPECT_THAT(profile, Not(HasSubstr("\ndriver = ")));
}

// plc-sim behaves so with the profile that was learnt.
TEST_F(SurveyRefusalsTest, RefusedValueOfAKnownName_IsLearntAndImitated) {
  write_file("once.toml", kRefusedValue);
  for (const char* profile : {"once.toml", "found/profile.toml"}) {
    const Outcome outcome = survey(kWordAndDouble, {"--sentinel", "--profile", path(profile)});
    EXPECT_EQ(outcome.code, 1) << outcome.err;
    EXPECT_EQ(finding(0).at("why"), "its name is known, its value is refused, status 0x0019");
    EXPECT_EQ(finding(1).at("state"), "good");
    const std::string learnt = file_text(path("found/profile.toml"));
    EXPECT_THAT(learnt, EndsWith(kRefusedValue));
    EXPECT_THAT(learnt, Not(HasSubstr("that the controller does not have")));
  }
}

// Its refused names have the same form.
TEST_F(SurveyRefusalsTest, ValueReplyInTheFormOfRefusedNames_RefusesWithoutAStatus) {
  write_file("unmarked.toml", "[refusal]\nshape = \"short\"\nstatus = 0\n");
  survey("Speed,INT,,,,,,0,1,0,0,,DM\n",
         {"--sentinel", "--profile", path("unmarked.toml"), "--fault", "short 2 times=always on=read"});
  EXPECT_EQ(finding(0).at("state"), "refused");
}

TEST_F(SurveyRefusalsTest, ReplyToANameThatLacksItsLastBytes_IsDamagedAndAskedAbout) {
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel", "--fault", "short 2 times=always every=5 on=resolve"});
  const Json heads = report().at("heads");
  EXPECT_GT(heads.at("names_shorter"), 0);
  EXPECT_EQ(heads.at("refused_for_once").at("names"), 0);
  for (const Json& one : heads.at("statuses")) {
    EXPECT_FALSE(one.at("status") == "0000" && one.at("request") == "resolve, refused") << one;
  }
  EXPECT_EQ(question_on("names that are missing"), "Why did " + heads.at("names_shorter").dump() +
                                                       " of the replies to names lack a part of what was asked for, "
                                                       "and refuse nothing?");
  EXPECT_THAT(outcome.out, Not(HasSubstr("answered when asked again")));
}

TEST_F(SurveyRefusalsTest, NameWhoseReplyAlwaysLacksItsLastBytes_IsNotRefused) {
  survey(kWordAndDouble, {"--sentinel", "--fault", "short 2 times=always on=resolve"});
  EXPECT_EQ(finding(0).at("state"), "not named");
  EXPECT_EQ(finding(0).at("why"), "the reply to its name has 39 bytes, which is too few for its place");
}

// Of a controller whose answers have another status than 0000.
TEST_F(SurveyRefusalsTest, PartOfAReplyWithTheStatusOfSuccess_IsNotRefused) {
  write_file("odd.toml", "[replies]\nstatus = 5\n");
  survey(kWordAndDouble, {"--sentinel", "--profile", path("odd.toml"), "--fault", "short 2 times=always on=resolve"});
  EXPECT_EQ(finding(0).at("state"), "not named");
  EXPECT_EQ(finding(0).at("why"), "the reply to its name has 39 bytes, which is too few for its place");
  EXPECT_THAT(file_text(path("found/profile.toml")), Not(HasSubstr("[[refused]]")));
  EXPECT_EQ(question_on("Speed").find("The controller refused it"), std::string::npos);
}

TEST_F(SurveyRefusalsTest, RefusalsThatComeAndGo_AreToldAndAskedAbout) {
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel", "--fault", "refuse 19 times=always every=10 on=read"});
  const Json counts = report().at("heads").at("refused_for_once");
  EXPECT_GT(counts.at("reads"), 1);
  EXPECT_GT(counts.at("reads_asked"), counts.at("reads"));
  const std::string told = counts.at("reads").dump() + " of " + counts.at("reads_asked").dump() +
                           " reads were refused, and answered when asked again";
  EXPECT_THAT(outcome.out, HasSubstr("\n" + told + "\n"));
  EXPECT_THAT(report().at("found").at(4).get<std::string>(), EndsWith(" " + told + "."));
  EXPECT_EQ(question_on("refusals that come and go"),
            "Why does the controller refuse what it answers at other times? " + told + ".");
}

// The first one came before anything told it from an answer.
TEST_F(SurveyRefusalsTest, StatusOfEveryFourthRead_RefusesTheFirstOneToo) {
  survey(kWordAndDouble, {"--sentinel", "--fault", "status 7 on=read times=always every=4"});
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("because"), "Every reply keeps the rules of the guarded build.");
  uint64_t refused = 0;
  for (const Json& one : found.at("heads").at("statuses")) {
    if (one.at("status") != "0007") continue;
    EXPECT_EQ(one.at("request"), "read, refused");
    refused += one.at("count").get<uint64_t>();
  }
  EXPECT_THAT(question_on("refusals that come and go"),
              HasSubstr("? " + std::to_string(refused) + " of " +
                        found.at("heads").at("refused_for_once").at("reads_asked").dump() + " reads were refused, "));
  EXPECT_EQ(question_on("refusals"), "");
  EXPECT_EQ(finding(0).at("state"), "good");
  EXPECT_EQ(finding(0).at("changes"), false);
}

TEST_F(SurveyRefusalsTest, RefusalsThatComeAndGo_AreAReasonOfTheDriverAndLeaveOutTheUnknownName) {
  survey(kWordAndDouble, {"--sentinel", "--fault", "refuse 99 times=always every=10 on=resolve"});
  const Json found = report();
  uint64_t refused = 0;
  for (const Json& one : found.at("heads").at("statuses")) {
    if (one.at("status") == "0063") refused += one.at("count").get<uint64_t>();
  }
  EXPECT_THAT(question_on("refusals that come and go"), HasSubstr("? " + std::to_string(refused) + " of "));
  const Json settings = found.at("recommendations");
  const auto driver =
      std::find_if(settings.begin(), settings.end(), [](const Json& one) { return one.at("setting") == "driver"; });
  ASSERT_NE(driver, settings.end());
  EXPECT_THAT(driver->at("because").get<std::string>(),
              HasSubstr(" The controller refuses at one time what it answers at another one: "
                        "a call that meets this fails."));
}

constexpr char kRefusedSpeed[] = "[[refused]]\nname = \"Speed\"\nwhat = \"value\"\nshape = \"full\"\nstatus = 0x0013\n";

// No other value came before it: only the replies to names tell that its status is none of an answer.
TEST_F(SurveyRefusalsTest, FirstValueThatIsRefusedWithZeros_IsNotReadAndIsNoLimit) {
  write_file("refused.toml", kRefusedSpeed);
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel", "--profile", path("refused.toml")});
  EXPECT_THAT(outcome.out, HasSubstr(": 2 variables, 1 read, 1 refused"));
  EXPECT_EQ(finding(0).at("state"), "refused");
  EXPECT_EQ(finding(1).at("state"), "good");
  EXPECT_EQ(report().at("limits").at("values_per_request"), nullptr);
  EXPECT_EQ(question_on("refusals that come and go"), "");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr(kRefusedSpeed));
}

TEST_F(SurveyRefusalsTest, OnlyValueThatIsRefusedWithZeros_IsNotReadAndNotWritten) {
  write_file("refused.toml", kRefusedSpeed);
  const Outcome outcome =
      survey("Speed,INT,,,,,,0,1,0,0,,DM\n", {"--sentinel", "--profile", path("refused.toml")}, {"--write", "Speed"});
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.out, HasSubstr(": 1 variable, 0 read, 1 refused"));
  EXPECT_EQ(finding(0).at("state"), "refused");
  EXPECT_EQ(report().at("writes").at("findings").at(0).at("acknowledged"), nullptr);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: --write Speed: not written: its value cannot be read"));
}

// Silence counts the same, and takes as long as a survey waits.
TEST_F(SurveyRefusalsTest, ConnectionsThatEndBeyondAFewNames_AreALimitAndNoDeadController) {
  std::string tags;
  for (int i = 0; i < 20; ++i) {
    tags += "Speed" + std::to_string(i) + ",INT,,,,,," + std::to_string(i) + ",1,0,0,,DM\n";
  }
  for (const int names : {1, 2}) {
    write_file("few.toml", "[limits]\nnames = " + std::to_string(names) + "\nbeyond = \"closed\"\n");
    const Outcome outcome = survey(tags, {"--sentinel", "--profile", path("few.toml")});
    EXPECT_EQ(outcome.code, 0) << names << outcome.out;
    EXPECT_EQ(report().at("whole"), true) << names;
    EXPECT_EQ(report().at("limits").at("names_per_request"), names);
  }
}

TEST_F(SurveyRefusalsTest, ControllerThatAnswersNothingMore_IsStillDead) {
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel", "--fault", "no-reply times=always after=30"});
  EXPECT_EQ(outcome.code, 7);
  EXPECT_EQ(report().at("whole"), false);
}

TEST_F(SurveyRefusalsTest, OddStatusOfASetAndReset_IsNoRefusalWhereTheValueWasReadBack) {
  const Outcome outcome = survey("Ready,BOOL,,,,,,0,1,0,0,,MR\n",
                                 {"--sentinel", "--fault", "status 5 times=always on=bit"}, {"--write", "Ready"});
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  const Json findings = report().at("writes").at("findings");
  ASSERT_EQ(findings.size(), 2U);
  for (const Json& one : findings) {
    EXPECT_EQ(one.at("acknowledged"), true) << one;
    EXPECT_EQ(one.at("status"), nullptr) << one;
    EXPECT_EQ(one.at("why"), nullptr) << one;
  }
}

TEST_F(SurveyRefusalsTest, RefusedWrite_IsCalledRefusedOnce) {
  survey("Speed,INT,,,,,,0,1,0,0,,DM\n", {"--sentinel", "--fault", "refuse 5 times=always on=write"},
         {"--write", "Speed"});
  EXPECT_THAT(question_on("Speed"), StartsWith("May it be written? Its write was refused, status 0005; read back "));
}

// What a server answers to a request that it does not carry out: one name, its value 7, one program.
std::string answer_without_effect(const std::string& request) {
  const std::string function = request.substr(10, 2);
  std::string body;
  if (function == "\x0C\x28") body = std::string("\0\0\1", 3) + "\1" + std::string(23, '\1');
  if (function == std::string("\x1E\x09")) body = std::string("\0\7", 2);
  if (function == "\x0C\x25") body = std::string("\0", 1);
  const auto length = static_cast<char>(4 + body.size());
  const std::string head = {0, 0, 0, length, -1, -1, -1, static_cast<char>(~length)};
  return head + request.substr(8, 4) + std::string(2, '\0') + body;
}

TEST_F(SurveyRefusalsTest, AnsweredWriteThatIsNotCarriedOut_KeepsTheFormerValue) {
  const OwnServer server(answer_without_effect);
  write_file("machine.csv", "Speed,INT,,,,,,0,1,0,0,,DM\n");
  std::vector<std::string> all = words({"--gentle", "--rate", "1000", "--timeout", "1", "-q", "--write", "Speed"});
  all.at(2) = "127.0.0.1:" + server.port();
  const Outcome outcome = run(all);
  EXPECT_EQ(outcome.code, 1) << outcome.out;
  const std::string why = "acknowledged, but not written: its former value 7 is still there";
  EXPECT_EQ(report().at("writes").at("findings").at(0).at("why"), why);
  EXPECT_EQ(question_on("Speed"), "Can it be written? Its write was " + why + ".");
}

TEST_F(SurveyRefusalsTest, RefusedSettingBack_IsToldWithItsStatus) {
  const Outcome outcome =
      survey("Speed,INT,,,,,,0,1,0,0,,DM\n", {"--sentinel", "--fault", "refuse 5 times=always after=1 on=write"},
             {"--write", "Speed"});
  const std::string problem = "the write that sets it back was refused, status 0005, three times";
  EXPECT_EQ(report().at("writes").at("findings").at(0).at("why"), problem);
  EXPECT_THAT(outcome.err, HasSubstr("plc-host: --write Speed: " + problem + "\n"));
  EXPECT_EQ(question_on("Speed"),
            "Why does its former value not come back? Its write was acknowledged, and " + problem + ".");
}

TEST_F(SurveyRefusalsTest, SettingBackWithoutAnAnswer_IsTold) {
  survey("Speed,INT,,,,,,0,1,0,0,,DM\n", {"--sentinel", "--fault", "no-reply times=always after=1 on=write"},
         {"--write", "Speed"});
  EXPECT_EQ(report().at("writes").at("findings").at(0).at("why"),
            "the write that sets it back was not answered, three times");
}

TEST_F(SurveyRefusalsTest, HoursThatAreOverBeforeTheFirstRound_AreNotDone) {
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel"}, {"--hours", "1e-9"});
  const std::string why = "no round was made, for --hours was over before the first one";
  EXPECT_THAT(outcome.out, HasSubstr("\nhours: " + why + "\n"));
  const Json hours = report().at("hours");
  EXPECT_EQ(hours.at("step"), (Json{{"state", "not done"}, {"why", why}}));
  EXPECT_EQ(hours.at("losses"), nullptr);
}

TEST_F(SurveyRefusalsTest, TurnsThatALongRoundLeavesOut_AreCounted) {
  write_file("slow.toml", "[times]\nread_ms = 60\n");
  const Outcome outcome =
      survey(kWordAndDouble, {"--sentinel", "--profile", path("slow.toml")}, {"--hours", "0.0001", "--period", "10"});
  const Json hours = report().at("hours");
  const int left_out = hours.at("left_out");
  EXPECT_GT(left_out, 1);
  const std::string turns = std::to_string(left_out) + " of " +
                            std::to_string(left_out + hours.at("rounds").get<int>()) +
                            " turns were left out, because a round lasted longer than the period";
  EXPECT_THAT(outcome.out, HasSubstr("\nhours: " + turns + "\n"));
}

// What is in the folder, by its files.
std::map<std::string, std::string> files_in(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    files[entry.path().filename()] = file_text(entry.path());
  }
  return files;
}

TEST_F(SurveyRefusalsTest, FullDisk_LeavesTheFormerSurveyWhole) {
  write_file("machine.csv", kWordAndDouble);
  const auto simulator = start_simulator({"--sentinel"});
  std::vector<std::string> all = words({"--gentle", "--rate", "1000", "-q"});
  EXPECT_EQ(run(all).code, 0);
  const std::map<std::string, std::string> before = files_in(path("found"));
  all.emplace_back("--replace");
  std::vector<std::string> limited = {"/bin/bash", "-c", "", "bash"};
  for (const std::string& word : host_words(all)) limited.push_back(word);
  limited[2] = "ulimit -f 4; exec \"$@\"";
  const std::string kept =
      ". The former survey stays there whole, and this one is lost: make room, and survey again "
      "into another folder\n";
  const Outcome full = run_words(limited);
  EXPECT_EQ(full.code, 8);
  EXPECT_EQ(full.err, "plc-host: cannot write into " + path("found") + ": survey.pcapng: File too large" + kept);
  EXPECT_EQ(files_in(path("found")), before);
  // One file that cannot take its place any more keeps the others from theirs.
  all.erase(std::find(all.begin(), all.end(), "-q"));
  Child survey(host_words(all), path("out"), path("err"));
  EXPECT_TRUE(survey.wait_for("survey: step "));
  std::filesystem::rename(path("found/report.html"), path("elsewhere"));
  std::filesystem::create_symlink(path("elsewhere"), path("found/report.html"));
  EXPECT_EQ(survey.wait(), 8);
  EXPECT_THAT(file_text(path("err")),
              EndsWith("plc-host: cannot write into " + path("found") + ": report.html: it is a symbolic link" + kept));
  EXPECT_EQ(files_in(path("found")), before);
  end(*simulator);
}

TEST_F(SurveyRefusalsTest, FormerFileThatCannotBeReplaced_IsToldBeforeAnythingIsAsked) {
  namespace fs = std::filesystem;
  const std::vector<std::string> all = words({"--gentle", "--rate", "1000", "-q", "--replace"});
  fs::create_directory(path("found"));
  const auto said = [this](const std::string& problem) {
    return "plc-host: --output " + path("found") + ": " + problem + ". Name another folder\n";
  };
  fs::create_directory(path("found/survey.pcapng"));
  EXPECT_EQ(run(all).err, said("survey.pcapng cannot be replaced: it is a folder"));
  fs::remove(path("found/survey.pcapng"));
  fs::create_symlink(path("elsewhere"), path("found/report.json"));
  EXPECT_EQ(run(all).err, said("report.json cannot be replaced: it is a symbolic link"));
  fs::remove(path("found/report.json"));
  ASSERT_EQ(mkfifo(path("found/profile.toml.new").c_str(), 0600), 0);
  const Outcome pipe = run(all);
  EXPECT_EQ(pipe.code, 8);
  EXPECT_EQ(pipe.err, said("profile.toml.new cannot be replaced: it is not a regular file"));
  EXPECT_FALSE(fs::exists(path("elsewhere")));
}

TEST_F(SurveyRefusalsTest, CaptureThatIsCut_IsToldByTheReport) {
  write_file("machine.csv", kWordAndDouble);
  const auto simulator = start_simulator({"--sentinel"});
  std::vector<std::string> limited = {"/bin/bash", "-c", "", "bash"};
  for (const std::string& word : host_words(words({"--gentle", "--rate", "1000", "-q"}))) limited.push_back(word);
  limited[2] = "trap '' XFSZ; ulimit -f 60; exec \"$@\" --hours 0.001 --period 10";
  const Outcome outcome = run_words(limited);
  end(*simulator);
  EXPECT_EQ(outcome.code, 8);
  EXPECT_THAT(outcome.err, HasSubstr(": survey.pcapng: File too large, so that it is cut"));
  EXPECT_EQ(report().at("capture_cut"), "File too large");
  EXPECT_THAT(file_text(path("found/report.html")),
              AllOf(HasSubstr("survey.pcapng is cut, and lacks what came later: File too large."),
                    HasSubstr("survey.pcapng its beginning only: File too large."), Not(HasSubstr("every byte"))));
}

TEST_F(SurveyRefusalsTest, NoRefusal_AsksNothing) {
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(report().at("questions"), Json::array());
}

}  // namespace
