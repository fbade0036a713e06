// What a survey says where replies are damaged or doubled, where a call of the driver fails once, and where no
// controller answers.
#include <atomic>

#include "tests/tools/plc_host/survey/own_server.h"
#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

constexpr char kFour[] =
    "Speed,INT,,,,,,0,1,0,0,,DM\nTotal,DINT,,,,,,1,1,0,0,,DM\nLimit,INT,,,,,,2,1,0,0,,DM\nStep,INT,,,,,,3,1,0,0,,DM\n";

class SurveyDamageTest : public SurveyTest {
 protected:
  Outcome survey_with(const std::vector<std::string>& sim_words, const std::string& tags = kFour) {
    write_file("machine.csv", tags);
    std::vector<std::string> all = {"--sentinel"};
    all.insert(all.end(), sim_words.begin(), sim_words.end());
    const auto simulator = start_simulator(all);
    const Outcome outcome = run(words({"--gentle", "--timeout", "1", "--replace", "--rate", "1000"}));
    end(*simulator);
    return outcome;
  }
  Outcome survey_at(const std::string& port, const std::string& tags = kFour) {
    write_file("machine.csv", tags);
    return run({"survey", "--address", "127.0.0.1:" + port, "--tags", path("machine.csv"), "--output", path("found"),
                "--gentle", "--timeout", "1", "--rate", "1000", "--replace"});
  }
  void expect_all_good(const std::string& what) const {
    const Json variables = report().at("variables");
    for (const Json& finding : variables.at("findings")) {
      EXPECT_EQ(finding.at("state"), "good") << what << finding;
      EXPECT_EQ(finding.at("why"), nullptr) << what << finding;
    }
    EXPECT_EQ(variables.at("compared"), 4) << what;
  }
};

// The survey itself has sent four reads and a batch then.
TEST_F(SurveyDamageTest, CallOfTheDriverThatFailsOnce_IsNoFinding) {
  for (const char* fault : {"garbage on=read after=5", "refuse on=read after=5", "short 2 on=read after=5"}) {
    const Outcome outcome = survey_with({"--fault", fault});
    EXPECT_EQ(outcome.code, 0) << fault << outcome.out;
    expect_all_good(fault);
  }
}

TEST_F(SurveyDamageTest, ControllerWithOneConnection_IsReadByTheDriverToo) {
  write_file("one.toml", "[connections]\nmost = 1\none_more = \"refused\"\n");
  const Outcome outcome = survey_with({"--profile", path("one.toml")});
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  expect_all_good("one connection");
}

// A survey that is gentle opens one connection at a time, and meets no limit.
TEST_F(SurveyDamageTest, ControllerThatLeavesASecondConnectionSilent_AnswersEachOneOfAGentleSurvey) {
  write_file("one.toml", "[connections]\nmost = 1\none_more = \"silent\"\n");
  write_file("machine.csv", kFour);
  const auto simulator = start_simulator({"--profile", path("one.toml")});
  const Outcome outcome = run(words({"--gentle", "--timeout", "1", "--rate", "20"}));
  end(*simulator);
  EXPECT_EQ(outcome.code, 0) << outcome.out;
  EXPECT_EQ(report().at("link").at("connect_failures"), Json::array());
  EXPECT_EQ(report().at("heads").at("unanswered"), 0);
}

TEST_F(SurveyDamageTest, OneDamagedReply_IsNoRefusal) {
  for (const char* fault :
       {"refuse 25 on=resolve", "short 30 on=resolve after=1", "refuse 25 on=read", "short 2 on=read"}) {
    const Outcome outcome = survey_with({"--fault", fault});
    EXPECT_EQ(outcome.code, 0) << fault << outcome.out;
    expect_all_good(fault);
    EXPECT_THAT(file_text(path("found/profile.toml")), Not(HasSubstr("[[refused]]"))) << fault;
  }
}

// It says no more than a reply that does not come to its end.
TEST_F(SurveyDamageTest, BytesThatAreNoReply_AreARequestWithoutAnAnswer) {
  const Outcome outcome = survey_with({"--fault", "garbage 20 on=resolve"});
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n"));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("because"),
            "Every other reply keeps the rules of the guarded build. 1 reply has no head that tells where it ends, and "
            "nothing followed within 50 ms.");
  EXPECT_EQ(found.at("heads").at("unfinished"), 1);
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nlength = \"right\"  # "));
}

// The first request for a name is answered by a refusal that is none of the controller's.
TEST_F(SurveyDamageTest, FirstRefusalThatIsDamaged_TeachesNothingOfRefusals) {
  for (const char* fault : {"refuse 25 on=resolve", "garbage 20 on=resolve", "refuse 25 on=resolve times=2"}) {
    EXPECT_EQ(survey_with({"--fault", fault}).code, 0) << fault;
    EXPECT_EQ(report().at("heads").at("refusal_status"), "0004") << fault;
    EXPECT_EQ(report().at("heads").at("refusal_is_full"), true) << fault;
    const std::string profile = file_text(path("found/profile.toml"));
    EXPECT_THAT(profile, HasSubstr("\n[refusal]\nshape = \"full\"  # ")) << fault;
    EXPECT_THAT(profile, HasSubstr("\nstatus = 0x0004  # A refusal has this in bytes 12 and 13.")) << fault;
  }
}

TEST_F(SurveyDamageTest, RefusalThatComesThreeTimes_IsInTheProfile) {
  write_file("refusing.toml", "[[refused]]\nname = \"Limit\"\n");
  EXPECT_EQ(survey_with({"--profile", path("refusing.toml")}).code, 1);
  EXPECT_EQ(report().at("variables").at("findings").at(2).at("state"), "refused");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("[[refused]]\nname = \"Limit\"\n"));
}

TEST_F(SurveyDamageTest, DoubledReplies_LeaveTheGuardedBuildUnproved) {
  const Outcome outcome = survey_with({"--fault", "duplicate times=always"});
  // Whether the driver meets the second one of a reply is a matter of time.
  EXPECT_LE(outcome.code, 1) << outcome.out;
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("usable"), "not known");
  EXPECT_THAT(
      found.at("guarded").at("because").get<std::string>(),
      HasSubstr(" replies were none of ours. But so many replies that are none of ours make calls of the guarded "
                "build fail, now and then or always."));
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nusable = \"unknown\""));
  bool is_asked = false;
  for (const Json& question : found.at("questions")) is_asked = is_asked || question.at("about") == "doubled replies";
  EXPECT_TRUE(is_asked) << found.at("questions");
  for (const Json& finding : found.at("variables").at("findings")) EXPECT_NE(finding.at("state"), "different");
}

// Only whole ones with sound heads tell a change.
TEST_F(SurveyDamageTest, DamagedDirectory_IsToldAsOneAndHasNotChanged) {
  const std::pair<const char*, const char*> rows[] = {
      {"oversize 60 on=directory after=2", "does not keep this: nothing comes behind a reply."},
      {"short 2 on=directory after=2", "does not keep this: replies have all that was asked for."},
      {"wrong-sequence on=directory after=2", " replies was none of ours."},
      {"oversize 60 on=directory", "does not keep this: nothing comes behind a reply."}};
  for (const auto& [fault, told] : rows) {
    const Outcome outcome =
        survey_with({"--fault", fault}, "Speed,INT,,,,,,0,1,0,0,,DM\nStep,INT,,,,,,1,0,0,1,Main,DM\n");
    EXPECT_EQ(outcome.code, 0) << fault << outcome.out;
    const Json found = report();
    EXPECT_EQ(found.at("found").at(2), "Its directory names 1 program, and has all that the tag files name.") << fault;
    EXPECT_THAT(found.at("guarded").at("because").get<std::string>(), HasSubstr(told)) << fault;
    for (const Json& question : found.at("questions")) EXPECT_NE(question.at("about"), "directory") << fault;
  }
}

// A refused name gets zeros here, and its status tells it from an answer only to a build that looks at it.
TEST_F(SurveyDamageTest, StatusOfOneKindOfAnswer_IsTheReasonAndAQuestion) {
  write_file("full.toml", "[refusal]\nshape = \"full\"\nstatus = 0x0019\n[[refused]]\nname = \"Limit\"\n");
  survey_with({"--profile", path("full.toml"), "--fault", "status 5 on=read times=always"});
  const Json found = report();
  EXPECT_THAT(found.at("guarded").at("because").get<std::string>(),
              testing::ContainsRegex("^[0-9]+ replies to read with status 0005, and these refuse nothing: the guarded "
                                     "build has to be built without its check of the status\\."));
  bool is_asked = false;
  for (const Json& question : found.at("questions")) {
    is_asked = is_asked || question.at("question").get<std::string>().find("What does status 0005 mean?") == 0;
  }
  EXPECT_TRUE(is_asked) << found.at("questions");
}

void expect_no_controller(const Outcome& outcome, const Json& report, const std::string& what) {
  EXPECT_EQ(outcome.code, 7) << what << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not known: what answers there does not speak this protocol\n"))
      << what;
  EXPECT_EQ(report.at("recommendations"), Json::array()) << what;
  EXPECT_EQ(report.at("questions"), Json::array()) << what;
  EXPECT_EQ(report.at("programs").at("directory"), nullptr) << what;
  EXPECT_EQ(report.at("limits").at("names_per_request"), nullptr) << what;
  for (const Json& finding : report.at("variables").at("findings")) {
    EXPECT_EQ(finding.at("state"), "not tried") << what << finding;
  }
}

TEST_F(SurveyDamageTest, EchoOfRequests_IsNoController) {
  const OwnServer server([](const std::string& request) { return request; });
  const Outcome outcome = survey_at(server.port());
  expect_no_controller(outcome, report(), "echo");
  EXPECT_NE(
      file_text(path("found/report.html")).find("<p class=\"why\">Nothing yet: not every variable was tried.</p>"),
      std::string::npos);
}

// Every eight bytes are the head of a reply, of one that ends with them or of one that is longer.
TEST_F(SurveyDamageTest, FloodOfHeads_IsNoController) {
  const std::string heads[] = {{"\x00\x00\x00\x00\xFF\xFF\xFF\xFF", 8}, {"\x00\x00\x00\x06\xFF\xFF\xFF\xF9", 8}};
  for (const std::string& head : heads) {
    for (const size_t count : {8U, 64U}) {
      std::string flood;
      for (size_t i = 0; i < count; ++i) flood += head;
      const OwnServer server([&flood](const std::string&) { return flood; });
      const Outcome outcome = survey_at(server.port());
      expect_no_controller(outcome, report(), std::to_string(count) + " heads, " + std::to_string(head[3]));
    }
  }
}

// A controller that is as slow as that is none that speaks something else.
TEST_F(SurveyDamageTest, FirstByteOfAHead_SaysNothingOfWhoSendsIt) {
  const OwnServer server([](const std::string&) { return std::string(1, '\0'); });
  const Outcome outcome = survey_at(server.port());
  EXPECT_EQ(outcome.code, 7);
  EXPECT_THAT(outcome.out,
              HasSubstr(" variables, none read: the controller does not answer: no answer to the directory"));
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not known\n"));
}

// It answers all the same, and the contract build reads it.
TEST_F(SurveyDamageTest, ControllerWhoseHeadsHaveNothingOfTheRequest_IsOneThatTheGuardedBuildCannotRead) {
  write_file("other.toml",
             "[replies]\nlength = \"other\"\ncomplement = \"other\"\nsequence = \"other\"\nclass = \"other\"\n"
             "command = \"other\"\n");
  const Outcome outcome = survey_with({"--profile", path("other.toml")});
  EXPECT_EQ(outcome.code, 0) << outcome.out << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: not usable\n"));
  EXPECT_THAT(outcome.out, HasSubstr("\nset driver: contract\n"));
  const Json found = report();
  EXPECT_EQ(found.at("guarded").at("because"),
            "Does not hold: length and complement are right, and all of the reply comes; the sequence number is the "
            "request's; class and command are the request's. The guarded build would fail where this does not hold.");
  EXPECT_EQ(found.at("variables").at("compared_with"), "1.1.0 contract");
  expect_all_good("other");
  EXPECT_THAT(file_text(path("found/profile.toml")), HasSubstr("\nclass = \"other\"  # "));
}

// However many variables there are.
TEST_F(SurveyDamageTest, WhatNeverSpeaksTheProtocol_IsLeftSoon) {
  const std::string flood(65536, '\xFF');
  std::atomic<unsigned> requests{0};
  const OwnServer server([&](const std::string&) {
    ++requests;
    return flood;
  });
  std::string tags;
  for (int i = 0; i < 200; ++i) tags += "V" + std::to_string(i) + ",INT,,,,,," + std::to_string(i) + ",1,0,0,,DM\n";
  const Outcome outcome = survey_at(server.port(), tags);
  expect_no_controller(outcome, report(), "flood");
  EXPECT_EQ(report().at("ended"), "what answers there does not speak this protocol");
  EXPECT_EQ(report().at("heads").at("replies"), 60);
  EXPECT_LE(requests, 60U);
}

}  // namespace
