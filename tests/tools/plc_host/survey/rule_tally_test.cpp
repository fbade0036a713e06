// Who breaks a rule: the controller, one variable, or chance.
#include "tools/plc_host/survey/rule_tally.h"

#include <gtest/gtest.h>

namespace {

using plc_host::survey::RuleTally;
using plc_host::survey::Subject;
using plc_sim::RequestKind;
using Word = RuleTally::Word;

void note_reads(RuleTally& tally, const std::set<std::string>& places, uint64_t kept, uint64_t broken) {
  for (uint64_t i = 0; i < kept; ++i) tally.note({RequestKind::kRead, places}, true);
  for (uint64_t i = 0; i < broken; ++i) tally.note({RequestKind::kRead, places}, false);
}

TEST(RuleTally, WithoutABreak_IsKept) {
  RuleTally tally;
  EXPECT_EQ(tally.judge(), Word::kKept);
  note_reads(tally, {"a"}, 1, 0);
  EXPECT_EQ(tally.judge(), Word::kKept);
}

TEST(RuleTally, OneBreakAmongTen_IsRare) {
  RuleTally tally;
  note_reads(tally, {"a", "b"}, 18, 2);
  EXPECT_EQ(tally.judge(), Word::kRarely);
  note_reads(tally, {"a", "b"}, 0, 1);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

TEST(RuleTally, OneBreakAmongThree_IsRareAndAmongTwoNotKnown) {
  RuleTally tally;
  note_reads(tally, {"a", "b"}, 1, 1);
  EXPECT_EQ(tally.judge(), Word::kNotKnown);
  note_reads(tally, {"a", "b"}, 1, 0);
  EXPECT_EQ(tally.judge(), Word::kRarely);
}

TEST(RuleTally, BreaksOfOneKindOfRequest_AreNotLostAmongOthers) {
  RuleTally tally;
  note_reads(tally, {"a"}, 1000, 0);
  tally.note({RequestKind::kWrite, {}}, false);
  EXPECT_EQ(tally.judge(), Word::kNotKnown);
  tally.note({RequestKind::kWrite, {}}, false);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

TEST(RuleTally, OneOfThreeVariablesThatBreaksItEachTime_IsByVariablesWithItsBatches) {
  RuleTally tally;
  note_reads(tally, {"a"}, 0, 3);
  note_reads(tally, {"b"}, 1, 0);
  EXPECT_EQ(tally.judge(), Word::kNotKnown);
  note_reads(tally, {"c"}, 1, 0);
  note_reads(tally, {"a", "b", "c"}, 0, 9);
  EXPECT_EQ(tally.judge(), Word::kByVariables);
  EXPECT_EQ(tally.culprits(), 1U);
  note_reads(tally, {"b", "c"}, 1, 3);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

TEST(RuleTally, VariableThatKeepsItOnce_IsNoCulprit) {
  RuleTally tally;
  note_reads(tally, {"a"}, 0, 1);
  note_reads(tally, {"b"}, 5, 0);
  note_reads(tally, {"c"}, 5, 0);
  EXPECT_EQ(tally.culprits(), 0U);
  note_reads(tally, {"a"}, 0, 1);
  EXPECT_EQ(tally.culprits(), 1U);
  note_reads(tally, {"a", "b"}, 1, 0);
  EXPECT_EQ(tally.culprits(), 0U);
}

TEST(RuleTally, MoreThanATenthOfManyVariables_IsTheController) {
  RuleTally tally;
  for (int i = 0; i < 18; ++i) note_reads(tally, {std::to_string(i)}, 2, 0);
  note_reads(tally, {"a"}, 0, 2);
  note_reads(tally, {"b"}, 0, 2);
  EXPECT_EQ(tally.judge(), Word::kByVariables);
  EXPECT_EQ(tally.culprits(), 2U);
  note_reads(tally, {"c"}, 0, 2);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

// However few variables there are.
TEST(RuleTally, MostRepliesOfSeveralKinds_AreTheController) {
  RuleTally tally;
  note_reads(tally, {"a"}, 0, 3);
  EXPECT_EQ(tally.judge(), Word::kNotKnown);
  tally.note({RequestKind::kDirectory, {}}, false);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

}  // namespace
