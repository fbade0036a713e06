// Replies that answer none of the requests, or that do not come to their end: what a survey says of a few of them, and
// that none is taken for a value, least of all for one that is written back.
#include <algorithm>

#include "tests/tools/plc_host/survey/survey_fixture.h"

namespace {

using namespace plc_host_test;

constexpr char kSpeedAlone[] = "Speed,INT,,,,,,0,1,0,0,,DM\n";
constexpr char kOtherReplies[] = "Every other reply keeps the rules of the guarded build. ";

class SurveyStraysTest : public SurveyTest {
 protected:
  // Of a controller that has one variable and this fault.
  Outcome survey_with(const std::string& fault, const std::vector<std::string>& more = {},
                      const std::string& profile = "") {
    write_file("machine.csv", kSpeedAlone);
    write_file("imitated.toml", profile);
    const auto simulator = start_simulator({"--sentinel", "--profile", path("imitated.toml"), "--fault", fault,
                                            "--report", path("sim.json"), "--pcap", path("sim.pcap")});
    std::vector<std::string> options = {"--gentle", "--replace"};
    options.insert(options.end(), more.begin(), more.end());
    const auto add_usual = [&](const char* option, const char* value) {
      if (std::find(more.begin(), more.end(), option) == more.end()) options.insert(options.end(), {option, value});
    };
    add_usual("--rate", "1000");
    add_usual("--timeout", "1");
    const Outcome outcome = run(words(options));
    value_ = values()["Speed"];
    end(*simulator);
    return outcome;
  }
  uint64_t heads_of(const char* what) const { return report().at("heads").at(what); }
  std::string because() const { return report().at("guarded").at("because"); }
  // One of all frames that came.
  std::string one_foreign() const {
    return kOtherReplies + ("1 of " + std::to_string(heads_of("replies") + 1)) + " replies was none of ours.";
  }

  std::string value_;  // of Speed, once the survey was over
};

TEST_F(SurveyStraysTest, OneForeignReply_IsDroppedAndToldAndTheOwnOneTaken) {
  for (const char* fault : {"foreign on=read after=1", "foreign on=resolve", "duplicate on=read after=3"}) {
    const Outcome outcome = survey_with(fault);
    EXPECT_EQ(outcome.code, 0) << fault << outcome.out;
    EXPECT_THAT(outcome.out, HasSubstr("\nguarded build: usable\n")) << fault;
    EXPECT_EQ(because(), one_foreign()) << fault;
    EXPECT_EQ(heads_of("foreign"), 1U) << fault;
    EXPECT_EQ(heads_of("unanswered"), 0U) << fault;
    EXPECT_EQ(heads_of("bytes_unasked"), 0U) << fault;
    EXPECT_EQ(report().at("heads").at("fields").at("sequence").at("right"), heads_of("replies")) << fault;
  }
}

// The copy comes behind the reply, before the next request or inside the reply to that, as the rate has it.
TEST_F(SurveyStraysTest, CopyOfAReplyInTwoSegments_IsOneForeignReply) {
  for (const char* rate : {"1000", "250"}) {
    // The longest replies have hundreds of pieces.
    const Outcome outcome = survey_with("duplicate on=read after=3", {"--rate", rate, "--timeout", "20"},
                                        "[replies]\npiece_bytes = 12\npiece_gap_ms = 1\n");
    EXPECT_EQ(outcome.code, 0) << rate << outcome.out;
    EXPECT_EQ(because(), one_foreign()) << rate;
    EXPECT_EQ(heads_of("foreign"), 1U) << rate;
    EXPECT_EQ(heads_of("bytes_unasked"), 0U) << rate;
    EXPECT_EQ(heads_of("unanswered"), 0U) << rate;
    EXPECT_EQ(report().at("heads").at("values").at("longer"), 0) << rate;
  }
}

TEST_F(SurveyStraysTest, ForeignReplyWithoutTheOwnOne_IsARequestWithoutAnAnswer) {
  EXPECT_EQ(survey_with("wrong-sequence on=read after=5").code, 0);
  EXPECT_EQ(because(), one_foreign());
  EXPECT_EQ(heads_of("unanswered"), 1U);
  EXPECT_THAT(report().at("recommendations").at(1).at("because").get<std::string>(),
              HasSubstr(", and 1 request had no answer within 1000 ms: five times that wait"));
  const Json rule = report().at("guarded").at("rules").at(1);
  EXPECT_EQ(rule.at("rule"), "the sequence number is the request's");
  EXPECT_EQ(rule.at("broken"), 1);
  EXPECT_EQ(rule.at("kept"), heads_of("replies"));
  EXPECT_EQ(rule.at("holds"), true);
  EXPECT_EQ(report().at("recommendations").at(0).at("because"),
            one_foreign() + " 1 of " + std::to_string(heads_of("replies") + 1) +
                " requests had no answer: a call that waits for one of them fails, and plc-host ends its list of "
                "variables there.");
  EXPECT_EQ(report().at("questions").at(0).at("about"), "doubled replies");
}

TEST_F(SurveyStraysTest, ReplyThatDoesNotComeToItsEnd_IsARequestWithoutAnAnswer) {
  for (const char* fault : {"cut 15 on=read after=5", "cut 5 on=read after=5"}) {
    EXPECT_EQ(survey_with(fault).code, 0) << fault;
    EXPECT_EQ(because(), kOtherReplies + std::string("1 reply was not whole within 1000 ms.")) << fault;
    EXPECT_EQ(heads_of("unfinished"), 1U) << fault;
    EXPECT_EQ(heads_of("unanswered"), 1U) << fault;
    EXPECT_THAT(report().at("recommendations").at(1).at("because").get<std::string>(),
                HasSubstr(", and 1 request had no whole answer within 1000 ms: five times that wait"))
        << fault;
    const Json rule = report().at("guarded").at("rules").at(0);
    EXPECT_EQ(rule.at("rule"), "length and complement are right in replies that come to their end") << fault;
    EXPECT_EQ(rule.at("broken"), 0) << fault;
  }
}

// Where they come before the next request, they are behind their reply; where they come after it, in front of the next.
TEST_F(SurveyStraysTest, BytesBetweenTwoReplies_AreBehindTheFirstAndTheSecondIsTaken) {
  for (const char* fault : {"stale 3 on=read after=5", "trailing 3 on=resolve after=5"}) {
    EXPECT_EQ(survey_with(fault).code, 0) << fault;
    EXPECT_EQ(heads_of("unanswered"), 0U) << fault;
    EXPECT_EQ(heads_of("unfinished"), 0U) << fault;
    EXPECT_EQ(heads_of("bytes_unasked"), 3U) << fault;
    EXPECT_EQ(because(), kOtherReplies + ("1 of " + std::to_string(heads_of("replies"))) +
                             " replies does not keep this: nothing comes behind a reply. A call of the guarded build "
                             "that meets such a reply fails, and gives no value.")
        << fault;
    const Json rule = report().at("guarded").at("rules").at(3);
    EXPECT_EQ(rule.at("broken"), 1) << fault;
    EXPECT_EQ(rule.at("kept"), heads_of("replies") - 1) << fault;
    EXPECT_EQ(report().at("questions").size(), 1U) << fault;
    EXPECT_EQ(report().at("questions").at(0).at("question"),
              "What else answers, or what are the bytes that come behind 1 of the replies, 3 in all? A call of the "
              "guarded build fails when it meets them.")
        << fault;
    EXPECT_THAT(report().at("recommendations").at(1).at("because").get<std::string>(),
                EndsWith(": five times that, in whole seconds"))
        << fault;
  }
}

TEST_F(SurveyStraysTest, BytesWithoutAHead_AreNoReasonForALongerTimeOut) {
  EXPECT_EQ(survey_with("garbage 64 on=read after=5").code, 0);
  const std::string told =
      kOtherReplies + std::string("1 reply has no head that tells where it ends, and nothing followed within 50 ms.");
  EXPECT_EQ(because(), told);
  const Json found = report();
  EXPECT_EQ(found.at("recommendations").at(0).at("because"),
            told + " 1 of " + std::to_string(heads_of("replies") + 1) +
                " requests got bytes in place of an answer: a call that meets this fails.");
  EXPECT_THAT(found.at("recommendations").at(1).at("because").get<std::string>(),
              EndsWith(": five times that, in whole seconds"));
  EXPECT_EQ(found.at("questions").at(0).at("question"),
            "What damages replies, or what else answers? 1 request got bytes without the head of a reply.");
  EXPECT_EQ(found.at("questions").size(), 1U);
  EXPECT_THAT(found.at("found").at(4).get<std::string>(), HasSubstr("; 1 reply has no head that tells where it ends;"));
}

TEST_F(SurveyStraysTest, ReplyThatTheEndOfItsConnectionCutsOff_IsToldAsThat) {
  EXPECT_EQ(survey_with("close-after 13 on=read after=5").code, 0);
  EXPECT_EQ(because(), kOtherReplies + std::string("1 reply was cut off by the end of the connection."));
  EXPECT_THAT(report().at("recommendations").at(1).at("because").get<std::string>(),
              EndsWith(": five times that, in whole seconds"));
}

TEST_F(SurveyStraysTest, RepliesThatOftenHaveAnotherNumber_AreAReasonAgainstTheGuardedBuild) {
  survey_with("wrong-sequence times=always every=3");
  EXPECT_EQ(report().at("guarded").at("usable"), "not usable");
  EXPECT_THAT(because(), StartsWith("Does not hold: the sequence number is the request's."));
}

TEST_F(SurveyStraysTest, ForeignReplyBesideTheOldValue_IsNotWrittenBack) {
  survey_with("no-reply on=write after=1000");
  const std::string before = value_;
  // The driver's four requests of the step before the times are beside them.
  const uint64_t first = heads_of("replies") + 4;
  for (uint64_t after = first; after < first + 8; ++after) {
    const Outcome outcome = survey_with("foreign after=" + std::to_string(after), {"--write", "Speed"});
    EXPECT_EQ(outcome.code, 0) << after << outcome.out << outcome.err;
    EXPECT_EQ(value_, before) << after;
    EXPECT_EQ(written(), (std::map<std::string, int>{{"Speed", 2}})) << after;
    EXPECT_EQ(because(), one_foreign()) << after;
  }
}

TEST_F(SurveyStraysTest, VariableWithTwoValues_IsNotWritten) {
  write_file("machine.csv", kSpeedAlone);
  const auto simulator = start_simulator({"--animate-ms", "1", "--report", path("sim.json")});
  const Outcome outcome = run(words({"--rate", "100", "--gentle", "--write", "Speed"}));
  end(*simulator);
  EXPECT_EQ(outcome.code, 1);
  EXPECT_THAT(outcome.err,
              HasSubstr("plc-host: --write Speed: not written: two reads gave two values: it is not written, for it "
                        "could not be put back\n"));
  EXPECT_TRUE(written().empty());
}

TEST_F(SurveyStraysTest, RoundWhoseOwnReplyDoesNotCome_IsLost) {
  const Outcome outcome =
      survey_with("wrong-sequence on=read after=60 times=1", {"--hours", "0.001", "--period", "10", "-q"});
  EXPECT_EQ(outcome.code, 1) << outcome.out;
  const Json hours = report().at("hours");
  EXPECT_EQ(hours.at("losses"), 1);
  EXPECT_EQ(hours.at("lost_values"), 1);
  EXPECT_EQ(heads_of("foreign"), 1U);
}

}  // namespace
