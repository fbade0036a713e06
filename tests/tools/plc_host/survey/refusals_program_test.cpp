// What plc-host survey says of variables that the driver cannot be asked for, of refusals that come and go, and of
// replies that lack something without refusing it.
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

TEST_F(SurveyRefusalsTest, NoRefusal_AsksNothing) {
  const Outcome outcome = survey(kWordAndDouble, {"--sentinel"});
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(report().at("questions"), Json::array());
}

}  // namespace
