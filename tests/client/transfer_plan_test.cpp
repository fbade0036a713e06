// Tests of the sharing of elements among calls.
#include "client/plan/transfer_plan.h"

#include <gtest/gtest.h>

#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

std::vector<std::pair<uint32_t, uint32_t>> plan(const TagEntry& entry, Direction direction,
                                                const std::string& subscripts = "") {
  const TagList list = make_list({entry});
  std::vector<std::pair<uint32_t, uint32_t>> runs;
  const TagReference reference = find_reference(list, list.tags[0].name + subscripts);
  for (const ElementRun& run : plan_elements(reference, direction)) runs.emplace_back(run.offset, run.count);
  return runs;
}

using Runs = std::vector<std::pair<uint32_t, uint32_t>>;

TEST(TransferPlan, SmallArray_IsOneRun) {
  EXPECT_EQ(plan(make_entry("T", kInt, {{0, 9}}), Direction::kRead), (Runs{{0, 10}}));
  EXPECT_EQ(plan(make_entry("T", kInt, {{0, 9}}), Direction::kWrite), (Runs{{0, 10}}));
  EXPECT_EQ(plan(make_entry("T", kInt, {{0, 9}}), Direction::kRead, "[2..4]"), (Runs{{2, 3}}));
}

TEST(TransferPlan, LargeRead_IsCutAtAHundredElements) {
  EXPECT_EQ(plan(make_entry("T", kInt, {{0, 249}}), Direction::kRead), (Runs{{0, 100}, {100, 100}, {200, 50}}));
}

TEST(TransferPlan, LongNames_ShortenTheRunsOfARead) {
  // 2 + 2 x 206 bytes for each name: nine of them fit 4096 - 24 bytes.
  const Runs runs = plan(make_entry(std::string(200, 'n'), kInt, {{100, 119}}), Direction::kRead);
  EXPECT_EQ(runs, (Runs{{100, 9}, {109, 9}, {118, 2}}));
}

TEST(TransferPlan, ControllerThatTakesFewNames_ShortensEveryRun) {
  const TagList list = make_list({make_entry("T", kInt, {{0, 44}})});
  for (const Direction direction : {Direction::kRead, Direction::kWrite}) {
    Runs runs;
    for (const ElementRun& run : plan_elements(whole_tag(list.tags[0]), direction, {true, 20})) {
      runs.emplace_back(run.offset, run.count);
    }
    EXPECT_EQ(runs, (Runs{{0, 20}, {20, 20}, {40, 5}}));
  }
}

TEST(TransferPlan, BoolRead_IsCutAt64) {
  EXPECT_EQ(plan(make_entry("B", kBool, {{0, 99}}), Direction::kRead), (Runs{{0, 64}, {64, 36}}));
}

TEST(TransferPlan, BoolWrite_IsCutAtEight) {
  EXPECT_EQ(plan(make_entry("B", kBool, {{0, 9}}), Direction::kWrite), (Runs{{0, 8}, {8, 2}}));
}

TEST(TransferPlan, BitsInsideWords_AreWrittenOneByOne) {
  TagEntry entry = make_entry("B", kBool, {{0, 2}});
  entry.device_kind = kEm;
  EXPECT_EQ(plan(entry, Direction::kWrite), (Runs{{0, 1}, {1, 1}, {2, 1}}));
  EXPECT_EQ(plan(make_entry("S.B", kBool, {{0, 2}}), Direction::kWrite), (Runs{{0, 1}, {1, 1}, {2, 1}}));
}

TEST(TransferPlan, BitsOnEmWhoseLastRangeEndsAtZero_AreWrittenOneByOneToo) {
  TagEntry entry = make_entry("B", kBool, {{0, 2}, {0, 0}});
  entry.device_kind = kEm;
  EXPECT_EQ(plan(entry, Direction::kWrite), (Runs{{0, 1}, {1, 1}, {2, 1}}));
}

TEST(TransferPlan, ThreeDimensionalBits_AreWrittenTogetherOutsideStructuresAlone) {
  EXPECT_EQ(plan(make_entry("B", kBool, {{0, 1}, {0, 1}, {0, 1}}), Direction::kWrite), (Runs{{0, 8}}));
  EXPECT_EQ(plan(make_entry("S.B", kBool, {{0, 0}, {0, 1}, {0, 1}}), Direction::kWrite),
            (Runs{{0, 1}, {1, 1}, {2, 1}, {3, 1}}));
}

TEST(TransferPlan, WordWrite_KeepsTo255UnitsAndTheRequest) {
  // "T[#100]" takes 16 bytes: 62 names fit 1024 - 24 bytes.
  EXPECT_EQ(plan(make_entry("T", kLint, {{100, 199}}), Direction::kWrite), (Runs{{100, 62}, {162, 38}}));
  EXPECT_EQ(plan(make_entry("T", kInt, {{0, 9}}), Direction::kWrite), (Runs{{0, 10}}));
}

TEST(TransferPlan, WriteWithLowerBounds_IsCutWhereTheControllersOrderAndTheOffsetsPart) {
  // Rows of three in the controller, of four in the driver's count.
  EXPECT_EQ(plan(make_entry("G", kInt, {{1, 2}, {1, 3}}), Direction::kWrite), (Runs{{5, 3}, {9, 3}}));
}

TEST(TransferPlan, UnreachableElement_IsSaid) {
  const TagList list = make_list({make_entry("G", kInt, {{0, 1}, {5, 6}})});
  try {
    plan_elements(find_reference(list, "G"), Direction::kRead);
    FAIL() << "all elements were placed";
  } catch (const PlanError& error) {
    EXPECT_STREQ(error.what(),
                 "no offset makes the driver read G[0,5] and 3 more of 4 elements: its rule for INT[0..1,5..6] names "
                 "other elements");
  }
}

TEST(TransferPlan, BitOfAStructureWhoseOffsetIsAnothersBit_IsNotWritten) {
  const TagEntry bounded = make_entry("S.V", kBool, {{1, 3}, {2, 5}});
  const TagList list = make_list({bounded});
  try {
    plan_elements(find_reference(list, "S.V[2,2]"), Direction::kWrite);
    FAIL() << "the driver would write S.V[1,3]";
  } catch (const PlanError& error) {
    EXPECT_STREQ(error.what(),
                 "no offset makes the driver write S.V[2,2]: its rule for BOOL[1..3,2..5] names other elements");
  }
  EXPECT_EQ(plan(bounded, Direction::kRead, "[2,2]"), (Runs{{1, 1}}));
  EXPECT_EQ(plan(make_entry("V", kBool, {{1, 3}, {2, 5}}), Direction::kWrite, "[2,2]"), (Runs{{1, 1}}));
  TagEntry on_em = bounded;
  on_em.device_kind = kEm;
  EXPECT_EQ(plan(on_em, Direction::kWrite, "[2,2]"), (Runs{{1, 1}}));
  EXPECT_EQ(plan(make_entry("S.V", kBool, {{0, 4}, {0, 9}}), Direction::kWrite, "[3,7]"), (Runs{{37, 1}}));
}

TEST(TransferPlan, TypesWithoutAWrite_AreRefused) {
  EXPECT_THROW(plan(make_entry("a", kSint), Direction::kWrite), PlanError);
  EXPECT_THROW(plan(make_entry("a", kDate), Direction::kWrite), PlanError);
  EXPECT_EQ(plan(make_entry("a", kSint), Direction::kRead), (Runs{{0, 1}}));
}

TEST(TransferPlan, StringRead_TakesPiecesOf255Units) {
  const std::vector<StringPiece> pieces = plan_string_read(make_string("s", 1025));
  ASSERT_EQ(pieces.size(), 3U);
  EXPECT_EQ(pieces[1].offset, 255U);
  EXPECT_EQ(pieces[2].units, 3U);
  EXPECT_EQ(plan_string_read(make_string("s", 7)).at(0).units, 4U);
}

TEST(TransferPlan, StringBeyondTheDriversReach_IsReadAsFarAsItGoes) {
  const std::vector<StringPiece> pieces = plan_string_read(make_string("s", 4000));
  EXPECT_EQ(pieces.back().offset, 510U);
}

TEST(TransferPlan, StringWrite_StaysBelowTheLengthThatTheDriverStatesWrong) {
  const std::vector<StringPiece> pieces = plan_string_write(250);
  ASSERT_EQ(pieces.size(), 3U);
  EXPECT_EQ(pieces[0].units, 120U);
  EXPECT_EQ(pieces[2].offset, 240U);
  EXPECT_EQ(pieces[2].units, 10U);
}

}  // namespace
}  // namespace plc_client::core
