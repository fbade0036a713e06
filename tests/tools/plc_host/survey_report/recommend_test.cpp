// What a survey advises, and what it does not advise of what was not measured.
#include "tools/plc_host/survey/recommend.h"

#include <gmock/gmock.h>

#include "tools/plc_host/survey_report/summary.h"

namespace {

using namespace plc_host::survey;
using testing::HasSubstr;
using Usable = Verdict::Usable;

// A whole survey with answers to the directory and, where they are given, to reads.
SurveyRecord record_with(Usable usable, const std::vector<double>& read_ms) {
  SurveyRecord record;
  record.is_whole = true;
  record.verdict.usable = usable;
  record.heads.replies = 8;
  record.heads.length.right = 8;
  record.times = {{"connect", 1, {9000}}, {"directory", 1, {40}}, {"resolve", 1, {2}}};
  if (!read_ms.empty()) record.times.push_back({"read", 1, read_ms});
  return record;
}

std::string value_of(const SurveyRecord& record, const std::string& setting) {
  for (const Recommendation& one : recommend(record)) {
    if (one.setting == setting) return one.value;
  }
  return "none";
}

std::string reason_of(const SurveyRecord& record, const std::string& setting) {
  for (const Recommendation& one : recommend(record)) {
    if (one.setting == setting) return one.because;
  }
  return "none";
}

TEST(Recommend, WithoutReads_TimeOutAndPauseAreNotKnown) {
  const SurveyRecord record = record_with(Usable::kUnknown, {});
  EXPECT_EQ(value_of(record, "timeout_s"), "none");
  EXPECT_EQ(value_of(record, "delay_ms"), "none");
}

TEST(Recommend, TimeOut_IsFiveTimesTheLongestAnswerOfAnyKind) {
  EXPECT_EQ(value_of(record_with(Usable::kYes, {3, 5}), "timeout_s"), "1");
  EXPECT_EQ(value_of(record_with(Usable::kYes, {3, 401}), "timeout_s"), "3");
  EXPECT_EQ(reason_of(record_with(Usable::kYes, {3, 5}), "timeout_s"),
            "the longest of 4 answers took 40.0 ms (directory, 1 name): five times that, in whole seconds");
}

TEST(Recommend, Pause_IsLongerThanAnyAnswerForTheContractBuild) {
  EXPECT_EQ(value_of(record_with(Usable::kYes, {3, 5}), "delay_ms"), "0");
  for (const Usable usable :
       {Usable::kNotUsable, Usable::kWithoutStatus, Usable::kWithoutValueEnd, Usable::kWithoutBoth}) {
    EXPECT_EQ(value_of(record_with(usable, {3, 55.5}), "delay_ms"), "56");
  }
  EXPECT_EQ(
      reason_of(record_with(Usable::kNotUsable, {56}), "delay_ms"),
      "the longest of 3 answers took 56.0 ms (read, 1 name): the pause of the contract build has to be longer, so "
      "that no late reply meets the next request");
  EXPECT_EQ(value_of(record_with(Usable::kNotUsable, {999}), "delay_ms"), "1000");
  EXPECT_EQ(value_of(record_with(Usable::kNotUsable, {1000}), "delay_ms"), "1000");
  EXPECT_THAT(reason_of(record_with(Usable::kNotUsable, {1000}), "delay_ms"),
              HasSubstr("; no pause is longer than 1000 ms"));
}

TEST(ContractWarning, IsOfVerdictsThatLeadToTheContractBuild) {
  EXPECT_EQ(contract_warning(record_with(Usable::kYes, {1})), "");
  EXPECT_EQ(contract_warning(record_with(Usable::kUnknown, {1})), "");
  const std::string risk = contract_warning(record_with(Usable::kNotUsable, {1}));
  EXPECT_THAT(risk, HasSubstr("with result 0. Set delay_ms above the answer times, and read back what you write."));
  EXPECT_EQ(contract_warning(record_with(Usable::kWithoutStatus, {1})),
            "Hosts take the contract build here, unless a guarded one that is built so is named. " + risk);
}

// Replies of 60 bytes that came in two pieces, so often.
Split halves(uint32_t times) { return {60, {{{30, 30}, times}}, {5}}; }

TEST(ContractProblem, IsThatOfPiecesAndOfValuesWhereTheGuardedBuildCannotBeUsed) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.splits = {halves(1)};
  EXPECT_EQ(contract_problem(record), "");
  record.splits = {halves(2)};
  EXPECT_EQ(contract_problem(record), "replies come in pieces of 30 bytes");
  EXPECT_FALSE(takes_contract_build(record));
  record.verdict.usable = Usable::kWithoutStatus;
  EXPECT_EQ(contract_problem(record), "replies come in pieces of 30 bytes");
  for (const Usable usable : {Usable::kYes, Usable::kUnknown}) {
    record.verdict.usable = usable;
    EXPECT_EQ(contract_problem(record), "");
  }
  record = record_with(Usable::kNotUsable, {1});
  record.splits = {{3000, {{{1448, 1448, 104}, 9}}, {1}}};
  EXPECT_EQ(contract_problem(record), "");
  record.variables.compared = 45;
  record.variables.misread = 2;
  record.variables.compared_with = "1.1.0 guarded";
  EXPECT_EQ(contract_problem(record), "");
  record.variables.compared_with = "1.1.0 contract";
  EXPECT_EQ(contract_problem(record), "the contract build gave other values than the controller for 2 of 45 variables");
}

TEST(ContractProblem, LeavesNoDriverToRecommendAndIsInTheProfile) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.splits = {halves(2)};
  EXPECT_EQ(value_of(record, "driver"), "none");
  EXPECT_EQ(value_of(record, "delay_ms"), "none");
  EXPECT_EQ(contract_warning(record),
            "Neither installed build reads this controller: replies come in pieces of 30 bytes. Hosts keep the guarded "
            "build, which fails where the contract build would show wrong values with result 0.");
  EXPECT_EQ(make_profile(record).contract_problem, "replies come in pieces of 30 bytes");
  EXPECT_EQ(verdict_sentence(record),
            "Neither installed build reads this controller: replies come in pieces of 30 bytes.");
  record.verdict.usable = Usable::kWithoutStatus;
  EXPECT_EQ(value_of(record, "driver"), "guarded, built with PLC_GUARD_STATUS=OFF");
}

VariableFinding other_by_driver(const std::string& name) {
  VariableFinding finding;
  finding.name = name;
  finding.state = VariableFinding::State::kDifferent;
  finding.is_other_by_driver = true;
  return finding;
}

TEST(Questions, VariablesThatPiecesExplain_AreOneQuestion) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  record.variables.findings = {other_by_driver("A"), other_by_driver("B")};
  EXPECT_EQ(questions(record).size(), 2U);
  record.splits = {halves(2)};
  const std::vector<Question> all = questions(record);
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].about, "2 variables");
  EXPECT_EQ(all[0].what,
            "Can the controller, or what is between, send each reply in one piece? Replies come in pieces of 30 bytes: "
            "that is why plc-host read gave other values, or none.");
}

TEST(Recommend, Poll_CountsEachAskedVariableAndThePauses) {
  SurveyRecord record = record_with(Usable::kNotUsable, {50});
  record.limits.step.state = Step::State::kDone;
  record.variables.findings.resize(40, other_by_driver("A"));
  record.variables.findings.push_back({});
  EXPECT_EQ(value_of(record, "delay_ms"), "51");
  EXPECT_EQ(value_of(record, "poll_ms"), "420");
  EXPECT_EQ(reason_of(record, "poll_ms"),
            "40 variables in 2 batches of up to 32 names, with a pause of 51 ms before each: 206.0 ms for all of them "
            "when each answer is as slow as the slowest in a hundred; twice that");
}

TEST(ContractWarning, IsInTheNoteOfTheProfileBehindWhyItIsNotWhole) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  const std::string warning = contract_warning(record);
  EXPECT_EQ(make_profile(record).note, warning);
  record.is_whole = false;
  record.ended = "interrupted";
  EXPECT_EQ(make_profile(record).note, "the survey did not come to its end: interrupted. " + warning);
}

}  // namespace
