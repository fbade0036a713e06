// What a survey recommends where a batch gives other values than single reads, and what it tells of limits not found.
#include <gtest/gtest.h>

#include <string>

#include "tools/plc_host/survey/recommend.h"

namespace {

using namespace plc_host::survey;

// Null where the setting is not recommended.
const Recommendation* recommended(const std::vector<Recommendation>& all, const std::string& setting) {
  for (const Recommendation& one : all) {
    if (one.setting == setting) return &one;
  }
  return nullptr;
}

TEST(Recommend, ValuesThatBatchesGiveOtherwise_AreReadSingly) {
  SurveyRecord record;
  record.is_whole = true;
  record.heads.replies = record.heads.length.right = 100;
  record.limits.step.state = Step::State::kDone;
  record.limits.values_per_request = 20;
  record.variables.findings.resize(2);
  record.variables.findings.front().is_other_in_batch = true;
  const std::vector<Recommendation> all = recommend(record);
  const Recommendation* batch = recommended(all, "batch_names");
  ASSERT_NE(batch, nullptr);
  EXPECT_EQ(batch->value, "1");
  EXPECT_EQ(batch->because,
            "1 variable has another value in a batch than singly, each time: no build of the driver tells which one is "
            "wrong. Singly they came alike each time");
}

TEST(Recommend, PollOfValuesThatBatchesGiveOtherwise_CountsARequestForEachName) {
  SurveyRecord record;
  record.is_whole = true;
  record.heads.replies = record.heads.length.right = 100;
  record.limits.step.state = Step::State::kDone;
  record.times = {{"resolve", 1, {1}}, {"read", 1, {1}}};
  record.variables.findings.resize(3);
  for (VariableFinding& one : record.variables.findings) one.state = VariableFinding::State::kGood;
  record.variables.findings.front().is_other_in_batch = true;
  const std::vector<Recommendation> all = recommend(record);
  const Recommendation* poll = recommended(all, "poll_ms");
  ASSERT_NE(poll, nullptr);
  EXPECT_NE(poll->because.find("3 variables, 3 names in 3 batches of up to 1 name"), std::string::npos)
      << poll->because;
}

TEST(Recommend, ContractBuildIsNoWayOut_WhereBatchesGiveOtherValues) {
  SurveyRecord record;
  record.verdict.usable = Verdict::Usable::kNotUsable;
  record.variables.findings.resize(1);
  EXPECT_TRUE(takes_contract_build(record));
  record.variables.findings.front().is_other_in_batch = true;
  EXPECT_FALSE(takes_contract_build(record));
  EXPECT_EQ(recommended(recommend(record), "driver"), nullptr);
}

TEST(LeftOut, LimitsOfASurveyThatEnded_SayHowFarItCame) {
  SurveyRecord record;
  record.heads.replies = record.heads.length.right = 100;
  record.limits.step = {Step::State::kPartly, "interrupted"};
  record.limits.names_reach = {64, 32, 0, false};
  const auto why = [&] { return left_out(record).at(0).because; };
  EXPECT_EQ(why(),
            "how many names and values a request may have was measured in part (names: answered up to 32; the survey "
            "ended before an answer to 64, and more was not tried. values: not measured): interrupted");
  record.limits.names_per_request = 40;
  record.limits.values_reach = {40, 40, 0, true};
  EXPECT_EQ(why(),
            "how many names and values a request may have was measured in part (names: 40. values: no limit met, 40 "
            "tried): interrupted");
}

}  // namespace
