// What a survey advises, and what it does not advise of what was not measured.
#include "tools/plc_host/survey/recommend.h"

#include <gmock/gmock.h>

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

TEST(ContractWarning, IsInTheNoteOfTheProfileBehindWhyItIsNotWhole) {
  SurveyRecord record = record_with(Usable::kNotUsable, {1});
  const std::string warning = contract_warning(record);
  EXPECT_EQ(make_profile(record).note, warning);
  record.is_whole = false;
  record.ended = "interrupted";
  EXPECT_EQ(make_profile(record).note, "the survey did not come to its end: interrupted. " + warning);
}

}  // namespace
