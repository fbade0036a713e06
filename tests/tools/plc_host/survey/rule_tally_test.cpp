// Who breaks a rule: the controller, one variable, or chance.
#include "tools/plc_host/survey/rule_tally.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

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

// 4 of 20 are more than a tenth, and may be luck.
TEST(RuleTally, BreaksThatMayBeLuck_AreRare) {
  RuleTally tally;
  note_reads(tally, {"a", "b"}, 16, 4);
  EXPECT_EQ(tally.judge(), Word::kRarely);
  note_reads(tally, {"a", "b"}, 0, 1);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

TEST(RuleTally, TenthOfManyReplies_IsRareAndAFifthIsNot) {
  RuleTally tally;
  note_reads(tally, {"a", "b"}, 351, 39);
  EXPECT_EQ(tally.judge(), Word::kRarely);
  note_reads(tally, {"a", "b"}, 0, 49);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

TEST(RuleTally, SureRate_IsTheLowerBoundOfWhatIsSeen) {
  using plc_host::survey::is_surely_often;
  EXPECT_FALSE(is_surely_often(0, 0));
  EXPECT_TRUE(is_surely_often(1, 1));
  EXPECT_FALSE(is_surely_often(1, 2));
  EXPECT_FALSE(is_surely_often(4, 22));
  EXPECT_TRUE(is_surely_often(5, 22));
  EXPECT_FALSE(is_surely_often(50, 390));
  EXPECT_TRUE(is_surely_often(51, 390));
}

TEST(RuleTally, RateNearATenth_IsSureOnceEnoughReplies) {
  using plc_host::survey::is_surely_often;
  EXPECT_FALSE(is_surely_often(6, 30));
  EXPECT_TRUE(is_surely_often(7, 35));
  EXPECT_FALSE(is_surely_often(69, 552));
  EXPECT_TRUE(is_surely_often(70, 560));
  EXPECT_FALSE(is_surely_often(100000, 1000000));
}

constexpr int kVariables = 45;

// One request after the other, as a survey makes them: connections, names and values by turns, times of each kind.
std::vector<Subject> asked_in_a_survey(int rounds = 2) {
  constexpr int kConnects = 20;
  std::vector<Subject> all;
  for (int i = 0; i < kConnects; ++i) {
    all.push_back({RequestKind::kDirectoryStart, {}});
    all.push_back({RequestKind::kDirectory, {}});
  }
  for (int round = 0; round < rounds; ++round) {
    for (int i = 0; i < kVariables; ++i) {
      all.push_back({RequestKind::kResolve, {std::to_string(i)}});
      all.push_back({RequestKind::kRead, {std::to_string(i)}});
    }
  }
  constexpr int kBatches = 45;
  constexpr int kNames = 8;
  for (int i = 0; i < kBatches; ++i) {
    std::set<std::string> parts;
    for (int j = 0; j < kNames; ++j) parts.insert(std::to_string((i * kNames + j) % kVariables));
    all.push_back({RequestKind::kResolve, parts});
    all.push_back({RequestKind::kRead, parts});
  }
  for (int i = 0; i < 2; ++i) all.push_back({RequestKind::kWrite, {"0"}});
  all.push_back({RequestKind::kBit, {"1"}});
  return all;
}

// Of these replies each one in so many breaks the rule, from the phase on.
Word word_of_every(const std::vector<Subject>& asked, size_t every, size_t phase,
                   std::optional<RequestKind> only = std::nullopt) {
  RuleTally tally;
  size_t met = 0;
  for (const Subject& one : asked) {
    const bool is_met = !only || one.kind == *only;
    tally.note(one, !is_met || met % every != phase);
    met += is_met ? 1 : 0;
  }
  return tally.judge();
}

TEST(RuleTally, BreakNowAndThen_IsRareWhicheverRepliesItMeets) {
  const std::vector<Subject> asked = asked_in_a_survey();
  for (const size_t every : {8U, 10U, 20U, 50U}) {
    for (size_t phase = 0; phase < every; ++phase) {
      EXPECT_EQ(word_of_every(asked, every, phase), Word::kRarely) << every << " " << phase;
    }
  }
}

TEST(RuleTally, BreakOfEveryFewReplies_IsSteadyWhicheverRepliesItMeets) {
  const std::vector<Subject> asked = asked_in_a_survey();
  for (const size_t every : {1U, 2U, 3U, 4U, 5U, 6U, 7U}) {
    for (size_t phase = 0; phase < every; ++phase) {
      EXPECT_EQ(word_of_every(asked, every, phase), Word::kBroken) << every << " " << phase;
    }
  }
}

TEST(RuleTally, BreakOfEveryEighthReply_IsSteadyOnceThereAreEnough) {
  const std::vector<Subject> asked = asked_in_a_survey(6);
  for (size_t phase = 0; phase < 8; ++phase) EXPECT_EQ(word_of_every(asked, 8, phase), Word::kBroken) << phase;
  for (size_t phase = 0; phase < 10; ++phase) EXPECT_EQ(word_of_every(asked, 10, phase), Word::kRarely) << phase;
}

TEST(RuleTally, BreakOfEveryFewRepliesOfOneKind_IsSteadyFromMoreThanAFifthOn) {
  const std::vector<Subject> asked = asked_in_a_survey();
  for (const RequestKind kind : {RequestKind::kResolve, RequestKind::kRead}) {
    for (const size_t every : {2U, 3U, 4U, 6U, 7U}) {
      for (size_t phase = 0; phase < every; ++phase) {
        EXPECT_EQ(word_of_every(asked, every, phase, kind), every < 5 ? Word::kBroken : Word::kRarely)
            << static_cast<int>(kind) << " " << every << " " << phase;
      }
    }
  }
}

TEST(RuleTally, BreakOfAllRepliesOfOneKind_IsSteadyWithOthersNowAndThen) {
  const std::vector<Subject> asked = asked_in_a_survey();
  constexpr size_t kEvery = 50;
  for (const RequestKind kind : {RequestKind::kDirectoryStart, RequestKind::kDirectory, RequestKind::kResolve}) {
    RuleTally alone;
    RuleTally with_others;
    for (size_t i = 0; i < asked.size(); ++i) {
      alone.note(asked[i], asked[i].kind != kind);
      with_others.note(asked[i], asked[i].kind != kind && i % kEvery != 0);
    }
    EXPECT_EQ(alone.judge(), Word::kBroken) << static_cast<int>(kind);
    EXPECT_EQ(with_others.judge(), Word::kBroken) << static_cast<int>(kind);
  }
}

TEST(RuleTally, OnlyWriteThatMeetsWhatOthersMeetToo_IsRare) {
  RuleTally tally;
  note_reads(tally, {"a", "b"}, 100, 2);
  tally.note({RequestKind::kWrite, {}}, false);
  EXPECT_EQ(tally.judge(), Word::kRarely);
  tally.note({RequestKind::kWrite, {}}, false);
  EXPECT_EQ(tally.judge(), Word::kRarely);
  tally.note({RequestKind::kWrite, {}}, false);
  EXPECT_EQ(tally.judge(), Word::kBroken);
}

TEST(RuleTally, VariableThatTwiceMetWhatOthersMeetToo_IsNotBlamed) {
  RuleTally tally;
  note_reads(tally, {"a"}, 0, 2);
  note_reads(tally, {"b"}, 90, 1);
  note_reads(tally, {"c"}, 90, 1);
  EXPECT_EQ(tally.judge(), Word::kByVariables);
  note_reads(tally, {"c"}, 0, 1);
  EXPECT_EQ(tally.judge(), Word::kRarely);
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
