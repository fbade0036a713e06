// Tests of the two rules that find a variable's program in the directory.
#include "plc_driver/tags/scope_match.h"

#include <gtest/gtest.h>

namespace {

using plc::LocalRecord;
using plc::match_scope_prefix;
using plc::match_scope_whole;

const LocalRecord kPrograms[] = {{7, "MAIN"}, {8, "MAIN2"}, {9, "Other"}, {10, "MAIN"}};

TEST(ScopePrefix, NameThatBeginsTheScope_Matches_D11) {
  EXPECT_EQ(match_scope_prefix(kPrograms, 4, "MAIN2"), &kPrograms[0]);
  EXPECT_EQ(match_scope_prefix(kPrograms, 4, "MAIN"), &kPrograms[0]);
  EXPECT_EQ(match_scope_prefix(kPrograms, 4, "Others"), &kPrograms[2]);
}

TEST(ScopePrefix, EmptyName_MatchesEveryScope_D11) {
  const LocalRecord programs[] = {{3, "Zero"}, {4, ""}, {5, "MAIN"}};
  EXPECT_EQ(match_scope_prefix(programs, 3, "MAIN"), &programs[1]);
  EXPECT_EQ(match_scope_prefix(programs, 3, ""), &programs[1]);
}

TEST(ScopePrefix, NoNameThatBeginsTheScope_GivesNull) {
  EXPECT_EQ(match_scope_prefix(kPrograms, 4, "MAI"), nullptr);
  EXPECT_EQ(match_scope_prefix(kPrograms, 4, "main"), nullptr);
  EXPECT_EQ(match_scope_prefix(kPrograms, 4, ""), nullptr);
}

TEST(ScopeWhole, EqualName_Matches) {
  EXPECT_EQ(match_scope_whole(kPrograms, 4, "MAIN2"), &kPrograms[1]);
  EXPECT_EQ(match_scope_whole(kPrograms, 4, "MAIN"), &kPrograms[0]);
}

TEST(ScopeWhole, BeginningOfTheScope_DoesNotMatch) {
  EXPECT_EQ(match_scope_whole(kPrograms, 4, "Others"), nullptr);
  EXPECT_EQ(match_scope_whole(kPrograms, 4, "Othe"), nullptr);
  EXPECT_EQ(match_scope_whole(kPrograms, 4, ""), nullptr);
}

TEST(ScopeMatch, Count_BoundsTheSearch) {
  EXPECT_EQ(match_scope_prefix(kPrograms, 2, "Other"), nullptr);
  EXPECT_EQ(match_scope_whole(kPrograms, 1, "MAIN2"), nullptr);
  EXPECT_EQ(match_scope_prefix(kPrograms, 0, "MAIN"), nullptr);
  EXPECT_EQ(match_scope_whole(kPrograms, 0, "MAIN"), nullptr);
}

}  // namespace
