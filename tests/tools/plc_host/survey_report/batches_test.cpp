// What a survey recommends where a batch gives other values than single reads.
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

TEST(Recommend, ContractBuildIsNoWayOut_WhereBatchesGiveOtherValues) {
  SurveyRecord record;
  record.verdict.usable = Verdict::Usable::kNotUsable;
  record.variables.findings.resize(1);
  EXPECT_TRUE(takes_contract_build(record));
  record.variables.findings.front().is_other_in_batch = true;
  EXPECT_FALSE(takes_contract_build(record));
  EXPECT_EQ(recommended(recommend(record), "driver"), nullptr);
}

}  // namespace
