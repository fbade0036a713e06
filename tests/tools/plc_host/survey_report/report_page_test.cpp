// What report.html says, in which order, and how text from outside stands in it.
#include "tools/plc_host/survey_report/report_page.h"

#include <gmock/gmock.h>

#include "tests/tools/plc_host/survey_report/sample_records.h"
#include "tools/plc_host/survey_report/report_words.h"

namespace {

using namespace plc_host::survey;
using testing::HasSubstr;
using testing::Not;

size_t times_in(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(SurveyPage, VerdictAndWhatWasLeftWritten_ComeFirst) {
  SurveyRecord record = survey_test::full_record();
  record.splits.clear();
  const std::string page = report_page(record);
  EXPECT_THAT(page, HasSubstr("<h1>Survey of the controller at 192.168.0.10:8500</h1>\n<p class=\"verdict bad\">The "
                              "guarded build cannot be used here: use the contract build.</p>\n<p class=\"alarm\">Not "
                              "set back, look after it now: Scratch.Flag: it was true</p>"));
  EXPECT_THAT(page, HasSubstr("<dt>made</dt><dd>2026-11-22 09:30:00 UTC</dd>"));
  EXPECT_THAT(page, HasSubstr("<td><code>batch_names</code></td><td><strong>50</strong></td><td>51 names were refused, "
                              "status 0011</td>"));
}

TEST(SurveyPage, EachVerdict_HasItsSentenceAndColour) {
  const std::pair<Verdict::Usable, const char*> kBadges[] = {
      {Verdict::Usable::kYes, "good\">The guarded build can be used here, with all of its checks."},
      {Verdict::Usable::kWithoutStatus,
       "good\">The guarded build can be used here when it is built without its check of "
       "the status (-DPLC_GUARD_STATUS=OFF)."},
      {Verdict::Usable::kWithoutValueEnd,
       "good\">The guarded build can be used here when it is built without its check "
       "of the end of values (-DPLC_GUARD_VALUE_END=OFF)."},
      {Verdict::Usable::kWithoutBoth,
       "good\">The guarded build can be used here when it is built without its checks of "
       "the status and of the end of values (-DPLC_GUARD_STATUS=OFF "
       "-DPLC_GUARD_VALUE_END=OFF)."},
      {Verdict::Usable::kNotUsable, "bad\">The guarded build cannot be used here: use the contract build."},
      {Verdict::Usable::kUnknown, "unknown\">Whether the guarded build can be used here is not known."}};
  for (const auto& [usable, badge] : kBadges) {
    SurveyRecord record = survey_test::full_record();
    record.verdict.usable = usable;
    record.splits.clear();
    EXPECT_THAT(report_page(record), HasSubstr(std::string("<p class=\"verdict ") + badge));
  }
}

TEST(SurveyPage, Questions_AreAList) {
  EXPECT_THAT(report_page(survey_test::full_record()),
              HasSubstr("<h2>What to ask the controller&#39;s programmer</h2>\n<ul class=\"questions\"><li><strong>MAIN"
                        "</strong>: Can one of the two be called otherwise? MAIN2 begins with this name.</li>\n"));
  EXPECT_THAT(report_page(survey_test::large_record()), HasSubstr("<li>and 1009 more</li>"));
}

TEST(SurveyPage, Evidence_MarksWhatIsWrong) {
  const std::string page = report_page(survey_test::full_record());
  EXPECT_THAT(page,
              HasSubstr("Evidence 1: reply to resolve of Motor.Speed: sequence number 0 in place of 17; packet 214 "
                        "of survey.pcapng"));
  EXPECT_THAT(page, HasSubstr("<tr><td>sequence number</td><td><code>00 11</code></td><td class=\"wrong\"><code>00 "
                              "00</code> not that of the request</td></tr>"));
  EXPECT_THAT(page, HasSubstr("<td>status</td><td></td><td class=\"wrong\"><code>00 04</code> not 0</td>"));
  EXPECT_THAT(page, HasSubstr("<td>class</td><td><code>0C</code></td><td><code>0C</code></td>"));
}

TEST(SurveyPage, OneExchangeForSeveralRules_IsShownOnce) {
  SurveyRecord record = survey_test::full_record();
  record.verdict.rules[0].evidence = record.verdict.rules[1].evidence = record.verdict.rules[2].evidence;
  const std::string page = report_page(record);
  EXPECT_EQ(times_in(page, "<figcaption>Evidence "), 2U);
  EXPECT_THAT(page, HasSubstr("<figcaption>Evidence 1: keeps the rule &quot;length&quot;; keeps the rule "
                              "&quot;complement&quot;; reply to resolve of Motor.Speed: sequence number 0 in place of "
                              "17; packet 214 of survey.pcapng</figcaption>"));
}

TEST(SurveyPage, WhatWasNotMeasured_SaysWhyAndHasNoFigure) {
  const std::string page = report_page(survey_test::interrupted_record());
  EXPECT_THAT(page, HasSubstr("<p class=\"verdict bad\">The survey is not whole: interrupted.</p>"));
  EXPECT_THAT(page, HasSubstr("<h2>Over hours</h2>\n<p class=\"why\">Not measured: interrupted.</p>\n</section>"));
  EXPECT_THAT(page, HasSubstr("<h2>Writes</h2>\n<p class=\"why\">Not measured: --write names no variable.</p>"));
  EXPECT_THAT(page, HasSubstr("<h2>Variables</h2>\n<p class=\"why\">Measured in part: interrupted.</p>"));
  EXPECT_THAT(page,
              HasSubstr("<td>values end the reply</td><td>not measured</td><td class=\"number\">not measured</td>"));
  EXPECT_THAT(page, HasSubstr("<p class=\"why\">Where replies with values end was not measured.</p>"));
  EXPECT_THAT(page, HasSubstr("Nothing is recommended: too little was measured."));
  EXPECT_THAT(page, Not(HasSubstr("<svg class=\"chart\"")));
}

// What was asked for when the survey ended has no answer, and is no limit that was not met.
TEST(SurveyPage, LimitsOfASurveyThatEnded_SayHowFarItCame) {
  SurveyRecord record = survey_test::interrupted_record();
  Limits& limits = record.limits;
  limits.step.state = Step::State::kPartly;
  limits.names_tried = limits.values_tried = 64;
  const auto page_with = [&](Reach names, Reach values) {
    limits.names_reach = names;
    limits.values_reach = values;
    return report_page(record);
  };
  EXPECT_THAT(
      page_with({64, 32, 0, false}, {}),
      HasSubstr("<dt>names in a request</dt><dd>answered up to 32; the survey ended before an answer to 64, and "
                "more was not tried</dd></div><div><dt>values in a request</dt><dd>not measured</dd>"));
  EXPECT_THAT(page_with({64, 64, 0, true}, {64, 32, 48, false}),
              HasSubstr("<dd>no limit met, 64 tried</dd></div><div><dt>values in a request</dt><dd>answered up to 32; "
                        "48 were not answered, and the survey ended before the limit was found</dd>"));
  EXPECT_THAT(page_with({64, 32, 33, false}, {1, 0, 0, false}),
              HasSubstr("<dd>answered up to 32; 33 were not answered</dd></div><div><dt>values in a request</dt>"
                        "<dd>the survey ended before an answer to 1, and more was not tried</dd>"));
}

TEST(SurveyPage, VariablesThatNoBatchRead_AreCounted) {
  SurveyRecord record = survey_test::interrupted_record();
  record.variables.findings.resize(2);
  for (VariableFinding& one : record.variables.findings) one.state = VariableFinding::State::kGood;
  const std::string said = " of them were read in a batch too, as hosts read.";
  EXPECT_EQ(times_in(report_page(record), "The survey ended before 2" + said), 2U);
  for (VariableFinding& one : record.variables.findings) one.is_batched = true;
  EXPECT_EQ(times_in(report_page(record), said), 0U);
  record.variables.findings.front().is_batched = false;
  EXPECT_EQ(times_in(report_page(record), "The survey ended before 1 of them was read in a batch too"), 2U);
  record.variables.step.state = Step::State::kDone;
  EXPECT_EQ(times_in(report_page(record), "in a batch too"), 0U);
}

TEST(SurveyPage, Neighbours_AreThoseThatWereComparedAndThoseThatWereNot) {
  SurveyRecord record = survey_test::full_record();
  EXPECT_THAT(report_page(record),
              HasSubstr("<p>Neighbours that were compared behind a write: Limit, Motor.Speed.</p>"));
  record.writes.neighbours.clear();
  record.writes.neighbours_not_compared = {"Limit"};
  const std::string page = report_page(record);
  EXPECT_THAT(page, Not(HasSubstr("Neighbours that were compared")));
  EXPECT_THAT(page, HasSubstr("<p class=\"why\">Neighbours that were read before a write, and not compared behind it: "
                              "Limit.</p>"));
}

TEST(SurveyPage, NothingMeasured_IsNoZero) {
  const std::string page = report_page(survey_test::empty_record());
  EXPECT_THAT(page, HasSubstr("Its name could not be resolved: Name or service not known."));
  EXPECT_THAT(page, Not(HasSubstr("<dd>0")));
  EXPECT_THAT(page, Not(HasSubstr(">0</td>")));
  EXPECT_THAT(page, Not(HasSubstr("0 replies")));
}

TEST(SurveyPage, ComparisonThatEndedEarly_SaysHowFarItCame) {
  SurveyRecord record = survey_test::full_record();
  record.variables.compared_with = "1.1.0 guarded";
  record.variables.to_compare = 45;
  record.variables.compared = 45;
  EXPECT_THAT(report_page(record),
              HasSubstr("<p>45 of 45 values that the survey read were compared with what the driver gives (1.1.0 "
                        "guarded).</p>"));
  record.variables.compared = 12;
  record.variables.not_compared = "not all of them were read by the driver: interrupted";
  EXPECT_THAT(report_page(record),
              HasSubstr("<p class=\"why\">12 of 45 values that the survey read were compared with what the driver "
                        "gives (1.1.0 guarded); not all of them were read by the driver: interrupted.</p>"));
}

TEST(SurveyPage, SettingsOfAPartOfASurvey_AreInTheProfileWithoutADriver) {
  SurveyRecord record = survey_test::full_record();
  record.verdict.usable = Verdict::Usable::kYes;
  EXPECT_THAT(report_page(record),
              HasSubstr("<p>profile.toml holds all of it, for plc-host, the client library and the gateway; plc-sim "
                        "--profile imitates this controller with it.</p>"));
  record.is_whole = false;
  record.ended = "interrupted";
  const std::string part =
      ", for plc-host, the client library and the gateway. Of the guarded build it has usable = \"unknown\", as the "
      "survey did not come to its end; plc-sim --profile imitates this controller with it.</p>";
  EXPECT_THAT(report_page(record), HasSubstr("<p>profile.toml holds these settings but for driver" + part));
  record.recommendations.erase(record.recommendations.begin());
  EXPECT_THAT(report_page(record), HasSubstr("<p>profile.toml holds these settings" + part));
  record.verdict.usable = Verdict::Usable::kNotUsable;
  EXPECT_THAT(report_page(record), HasSubstr("<p>profile.toml holds all of it, "));
}

TEST(SurveyPage, NoQuestionYet_SaysWhatIsMissing) {
  SurveyRecord record;
  record.variables.step = {Step::State::kPartly, "interrupted"};
  record.variables.findings.resize(2);
  record.variables.findings[0].state = VariableFinding::State::kGood;
  const std::string untried = "<p class=\"why\">Nothing yet: not every variable was tried.</p>";
  EXPECT_THAT(report_page(record), HasSubstr(untried));
  // The summary counts it as not tried too.
  record.variables.findings[1].why = "what answers there does not speak this protocol";
  EXPECT_THAT(report_page(record), HasSubstr(untried));
  record.variables.findings[1].state = VariableFinding::State::kGood;
  EXPECT_THAT(report_page(record), HasSubstr("<p class=\"why\">Nothing yet: every variable was tried, and not every "
                                             "value was compared.</p>"));
  record.variables.findings.clear();
  EXPECT_THAT(report_page(record), HasSubstr(untried));
}

TEST(SurveyPage, ElementsOfArraysThatNobodyAskedFor_AreTold) {
  const std::string last =
      "<p>Of an array one element was asked for, the last one, and --write writes that one alone.</p>";
  SurveyRecord record = survey_test::full_record();
  for (VariableFinding& one : record.variables.findings) one.element.clear();
  EXPECT_THAT(report_page(record), Not(HasSubstr(last)));
  record.variables.findings.back().element = "[9]";
  EXPECT_THAT(report_page(record), HasSubstr(last));
}

TEST(SurveyPage, RepliesThatAreNone_AreCountedInBothParts) {
  SurveyRecord record = survey_test::full_record();
  record.heads.foreign = 2;
  record.heads.unfinished = 1;
  const std::string strays = "; 2 replies were none of ours and were dropped; 1 reply did not come to its end";
  EXPECT_EQ(times_in(report_page(record), strays), 2U);
  record.heads.replies_unanswered = 3;
  EXPECT_EQ(times_in(report_page(record), "3 requests had no whole one; 2 replies"), 2U);
  record.heads.foreign = 1;
  record.heads.unfinished = 0;
  EXPECT_EQ(times_in(report_page(record), "3 requests had none; 1 reply"), 2U);
  EXPECT_EQ(times_in(report_page(record), "; 1 reply was none of ours and was dropped"), 2U);
  EXPECT_THAT(report_page(record), Not(HasSubstr("come to its end")));
}

TEST(SurveyPage, ProgramOfWhichThereIsABeginning_IsNotSaidToBeMissing) {
  SurveyRecord record = survey_test::full_record();
  EXPECT_THAT(report_page(record), HasSubstr("; of 4 that the tag files name, it lacks 1, it cuts the name of 1."));
  record.programs.findings = {{"Main2", 0, ProgramFinding::State::kMissing, "Main"}};
  EXPECT_THAT(report_page(record), HasSubstr("; of 1 that the tag files name, of 1 it has only the beginning of the "
                                             "name, which is another program or the name cut."));
}

TEST(SurveyPage, NamesThatDifferByABlankAlone_AreTold) {
  SurveyRecord record = survey_test::full_record();
  record.programs.directory = {"Main", "Main "};
  record.programs.findings = {{"Main ", 1, ProgramFinding::State::kFound, ""}};
  const std::string page = report_page(record);
  EXPECT_THAT(page, HasSubstr("<p>In the directory: Main, &#39;Main &#39;.</p>"));
  EXPECT_THAT(page, HasSubstr("<td>&#39;Main &#39;</td>"));
}

TEST(SurveyPage, MarkupFromOutside_IsText) {
  const std::string page = report_page(survey_test::hostile_record());
  EXPECT_THAT(page, Not(HasSubstr("<script")));
  EXPECT_EQ(page.find('\x1b'), std::string::npos);
  EXPECT_EQ(page.find("\xE2\x80\xAE"), std::string::npos);
  EXPECT_EQ(page.find('\xff'), std::string::npos);
  EXPECT_GT(
      times_in(page, "&lt;/td&gt;&lt;script&gt;window.wasRun=1&lt;/script&gt;&amp;&quot;&#39;\\x1b[2J\\n\\u{202e}"),
      50U);
}

TEST(SurveyPage, VariablesOfTheDeclaredSize_AreNotCalledOfTheDeclaredType) {
  SurveyRecord record;
  record.variables.step.state = Step::State::kDone;
  record.variables.findings.resize(1);
  record.variables.findings[0].state = VariableFinding::State::kGood;
  EXPECT_THAT(report_page(record), HasSubstr("<p>Nothing that replies show so far: every variable has the size"));
  record.is_whole = true;
  const std::string page = report_page(record);
  EXPECT_THAT(page, HasSubstr("<p>Every variable has the size that is declared.</p>"));
  EXPECT_THAT(page, HasSubstr("<p>Nothing that replies show: every variable has the size that is declared, and replies "
                              "are as expected. No reply tells types of one size apart: compare the declarations with "
                              "the program.</p>"));
  record.variables.findings.resize(2);
  EXPECT_THAT(report_page(record), HasSubstr("<p>Nothing that replies show: every variable that was tried has the size "
                                             "that is declared, and replies are as expected. "));
}

TEST(SurveyPage, LongLists_SayHowMuchIsMissing) {
  const std::string page = report_page(survey_test::large_record());
  EXPECT_EQ(times_in(page, "<td>refused, status 0004</td>"), 1000U);
  EXPECT_THAT(page, HasSubstr("<p>and 1000 more</p>"));
  EXPECT_THAT(page, HasSubstr("<summary>8000 variables as declared</summary>"));
  EXPECT_LT(page.size(), 1000000U);
}

TEST(SurveyPage, Charts_AreDrawnOfWhatWasMeasured) {
  SurveyRecord record;
  record.times_step.state = Step::State::kDone;
  record.times = {{"read", 1, {1, 2, 4}}, {"read", 11, {2, 4, 4}}, {"write", 1, {}}};
  const std::string page = report_page(record);
  EXPECT_EQ(times_in(page, "<svg class=\"chart\""), 2U);
  // From 0 at 190 to 5 ms at 12: 2 ms are 71.2 above the bottom, 4 ms 142.4.
  EXPECT_THAT(page, HasSubstr("<path class=\"line p50-line\" d=\"M82.0 118.8L690.0 47.6\"/>"));
  EXPECT_THAT(page, HasSubstr("<path class=\"line largest-line\" d=\"M82.0 47.6L690.0 47.6\"/>"));
  EXPECT_THAT(page, Not(HasSubstr("Answer times of write")));
}

// They were answered, and plc-host read shows nothing of them.
TEST(SurveyPage, VariablesWithoutAValue_AreCountedApart) {
  SurveyRecord record;
  record.variables.step.state = Step::State::kDone;
  record.variables.findings.resize(3);
  for (VariableFinding& one : record.variables.findings) one.state = VariableFinding::State::kGood;
  record.variables.findings[2].has_no_value = true;
  EXPECT_NE(report_page(record).find("<summary>2 variables as declared, and 1 answered without a value</summary>"),
            std::string::npos);
}

bool page_has(const SurveyRecord& record, const char* text) {
  return report_page(record).find(text) != std::string::npos;
}

TEST(SurveyPage, RowOfTimes_HasEachFigureInItsColumn) {
  SurveyRecord record;
  record.times_step.state = Step::State::kDone;
  record.times = {{"read", 1, {1, 2, 3, 400}, {}, 2, 3}};
  EXPECT_TRUE(page_has(record,
                       "<td class=\"number\">4 times</td><td class=\"number\">2.00 ms</td><td class=\"number\">"
                       "400 ms</td><td class=\"number\">400 ms</td><td class=\"number\">5</td>"));
  EXPECT_TRUE(page_has(record, "<p class=\"why\">The p99 of fewer than 100 times is the slowest of them.</p>"));
}

TEST(SurveyPage, Sentences_HaveP99AndTheSlowest) {
  SurveyRecord record;
  record.link.connects_tried = 1;
  record.link.connect_ms = {1};
  record.times = {{"read", 1, std::vector<double>(198, 1)}};
  record.times.front().ms.insert(record.times.front().ms.end(), {7, 90});
  EXPECT_TRUE(
      page_has(record, " is answered in 1.00 ms (p50), 1.00 ms (p99) and 90.00 ms at most, of 200 measurements."));
}

TEST(SurveyPage, Hours_HaveTheDriftAndTheGapApart) {
  SurveyRecord record;
  record.endurance.step.state = Step::State::kDone;
  record.endurance.losses = 1;
  record.endurance.longest_gap_ms = 300;
  record.endurance.drift_ms = 12;
  EXPECT_TRUE(page_has(record, "<dt>longest gap</dt><dd>300 ms</dd>"));
  EXPECT_TRUE(page_has(record, "<dt>last round behind its turn</dt><dd>12.00 ms</dd>"));
}

TEST(SurveyPage, SettingThatIsLeftOut_HasItsReason) {
  SurveyRecord record;
  record.left_out = {{"poll_ms", "no variable was asked for"}};
  EXPECT_NE(report_page(record).find("<code>poll_ms</code> is not set: no variable was asked for.</p>"),
            std::string::npos);
}

TEST(SurveyPage, TimesFarApart_AreDrawnByPowersOfTen) {
  SurveyRecord record;
  record.times_step.state = Step::State::kDone;
  record.times = {{"read", 1, {1}}, {"read", 2, {1000}}};
  const std::string page = report_page(record);
  EXPECT_THAT(page, HasSubstr("Answer times of read by number of names, in ms; each line ten times the one before"));
  EXPECT_THAT(page, HasSubstr("d=\"M82.0 190.0L690.0 12.0\""));
}

TEST(SurveyWords, Numbers_HaveAsManyDecimalsAsSaySomething) {
  EXPECT_EQ(shown_ms(0.0421), "0.042 ms");
  EXPECT_EQ(shown_ms(1.2345), "1.23 ms");
  EXPECT_EQ(shown_ms(312.4), "312 ms");
  EXPECT_EQ(seconds_text(4.25), "4.2 s");
  EXPECT_EQ(seconds_text(59.4), "59 s");
  EXPECT_EQ(seconds_text(192), "3 min 12 s");
  EXPECT_EQ(seconds_text(7512), "2 h 5 min");
  EXPECT_EQ(hours_text(2), "2 h");
  EXPECT_EQ(hours_text(0.5), "30 min");
  EXPECT_EQ(pieces_text({536, 80}), "536 + 80");
  EXPECT_EQ(pieces_text(std::vector<size_t>(9, 100)), "100 + 100 + 100 + 100 + 100 + 100 and 3 pieces more");
}

}  // namespace
