// Tests of the forming of batches.
#include "client/plan/batch_plan.h"

#include <gtest/gtest.h>

#include <numeric>

#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

std::vector<Batch> plan_all(const TagList& list, bool is_guarded = false) {
  std::vector<TagReference> references;
  std::vector<size_t> chosen;
  for (const Tag& tag : list.tags) {
    references.push_back(whole_tag(tag));
    if (!why_not_batched(references.back(), is_guarded)) chosen.push_back(references.size() - 1);
  }
  return plan_batches(references, chosen, {is_guarded, 0});
}

std::vector<size_t> sizes_of(const std::vector<Batch>& batches) {
  std::vector<size_t> sizes;
  for (const Batch& batch : batches) sizes.push_back(batch.size());
  return sizes;
}

TagList many_words(size_t count) {
  std::vector<TagEntry> entries;
  for (size_t i = 0; i < count; ++i) entries.push_back(make_entry("W" + std::to_string(i), kInt));
  return make_list(entries);
}

TEST(BatchPlan, SizesThatFillTwoFramesEvenly_AreOneBatch) {
  for (const size_t count : {size_t{1}, size_t{34}, size_t{36}, size_t{68}}) {
    EXPECT_EQ(sizes_of(plan_all(many_words(count))), std::vector<size_t>{count});
    EXPECT_EQ(sizes_of(plan_all(many_words(count), true)), std::vector<size_t>{count});
  }
}

TEST(BatchPlan, SizesThatLeaveSlotsOver_AreCut) {
  for (const bool is_guarded : {false, true}) {
    EXPECT_EQ(sizes_of(plan_all(many_words(35), is_guarded)), (std::vector<size_t>{34, 1}));
    EXPECT_EQ(sizes_of(plan_all(many_words(69), is_guarded)), (std::vector<size_t>{68, 1}));
    EXPECT_EQ(sizes_of(plan_all(many_words(100), is_guarded)), (std::vector<size_t>{68, 32}));
    EXPECT_EQ(sizes_of(plan_all(many_words(250), is_guarded)), (std::vector<size_t>{68, 68, 68, 46}));
  }
}

TEST(BatchPlan, ScatteredWords_TakeAsManyFramesAsTheirNumberDividedByThirtyFour) {
  for (size_t count = 1; count <= 205; ++count) {
    for (const bool is_guarded : {false, true}) {
      size_t frames = 0;
      for (const Batch& batch : plan_all(many_words(count), is_guarded)) frames += frame_count(batch, {is_guarded, 0});
      EXPECT_EQ(frames, (count + 33) / 34) << count << " words";
    }
  }
}

TEST(BatchPlan, WhatTheGuardedBuildRefuses_IsNotBatched) {
  TagEntry em = make_entry("B", kBool, {{0, 7}});
  em.device_kind = kEm;
  TagEntry em_of_one = make_entry("C", kBool, {{0, 0}});
  em_of_one.device_kind = kEm;
  TagEntry em_bit = make_entry("D", kBool);
  em_bit.device_kind = kEm;
  const TagList list = make_list({make_entry("a", kSint), make_entry("b", kLint), make_entry("c", kLreal, {{0, 1}}), em,
                                  em_of_one, em_bit, make_entry("e", kBool, {{0, 7}}), make_entry("f", kDint)});
  for (size_t i = 0; i < 5; ++i) EXPECT_TRUE(why_not_batched(whole_tag(list.tags[i]), true)) << i;
  for (size_t i = 5; i < 8; ++i) EXPECT_FALSE(why_not_batched(whole_tag(list.tags[i]), true)) << i;
}

TEST(BatchPlan, ProgramsOfOneNameWithTwoNumbers_AreKeptApart) {
  TagEntry first = make_local(make_entry("a", kInt), "MAIN");
  TagEntry second = make_local(make_entry("b", kInt), "MAIN");
  first.local_index = 1;
  second.local_index = 2;
  EXPECT_EQ(sizes_of(plan_all(make_list({first, second}), true)), (std::vector<size_t>{1, 1}));
}

TEST(BatchPlan, ControllerThatTakesFewNames_IsAskedForNoMoreAtATime) {
  const TagList list = many_words(68);
  std::vector<TagReference> references;
  std::vector<size_t> chosen;
  for (size_t i = 0; i < 68; ++i) {
    references.push_back(whole_tag(list.tags[i]));
    chosen.push_back(i);
  }
  // 40 slots are two frames of 20 names.
  EXPECT_EQ(sizes_of(plan_batches(references, chosen, {true, 20})), (std::vector<size_t>{40, 20, 8}));
  for (const Batch& batch : plan_batches(references, chosen, {true, 20})) {
    EXPECT_EQ(frame_count(batch, {true, 20}), (batch.size() + 19) / 20);
  }
  EXPECT_EQ(sizes_of(plan_batches(references, chosen, {true, 1000})), (std::vector<size_t>{68}));
}

TEST(BatchPlan, LongNames_AreSharedOutToMoreBatches) {
  std::vector<TagEntry> entries;
  for (int i = 0; i < 30; ++i) entries.push_back(make_entry(std::string(200, 'n') + std::to_string(i), kInt));
  for (const Batch& batch : plan_all(make_list(entries))) {
    const size_t bytes = std::accumulate(batch.begin(), batch.end(), size_t{24},
                                         [](size_t sum, const BatchSlot& slot) { return sum + slot.name_bytes; });
    EXPECT_LE(bytes, 4096U);
  }
}

TEST(BatchPlan, Scopes_AreKeptApart) {
  const TagList list =
      make_list({make_entry("a", kInt), make_local(make_entry("b", kInt), "MAIN"), make_entry("c", kInt),
                 make_local(make_entry("d", kInt), "SUB"), make_local(make_entry("e", kInt), "MAIN")});
  const std::vector<Batch> batches = plan_all(list);
  EXPECT_EQ(sizes_of(batches), (std::vector<size_t>{2, 2, 1}));
  EXPECT_EQ(batches[0][1].reference, 2U);
  EXPECT_EQ(batches[1][1].reference, 4U);
}

TEST(BatchPlan, WideVariable_TakesTwoSlotsThatStayTogether) {
  std::vector<TagEntry> entries;
  for (int i = 0; i < 60; ++i) entries.push_back(make_entry("L" + std::to_string(i), kLint));
  for (const Batch& batch : plan_all(make_list(entries))) {
    EXPECT_EQ(batch.front().part, SlotPart::kLowHalf);
    EXPECT_EQ(batch.front().count, 2);
    EXPECT_EQ(batch.back().part, SlotPart::kHighHalf);
    EXPECT_EQ(batch.back().count, 0);
    EXPECT_EQ(batch.size() % 2, 0U);
  }
}

TEST(BatchPlan, String_IsAskedForAtEverySecondCharacter) {
  const std::vector<Batch> batches = plan_all(make_list({make_string("s", 5)}));
  ASSERT_EQ(sizes_of(batches), std::vector<size_t>{3});
  EXPECT_EQ(batches[0][2].element, 4U);
}

TEST(BatchPlan, MergedRunAcrossAShare_LeavesNothingUnread) {
  const TagList list = make_list({make_entry("T", kInt, {{0, 49}})});
  EXPECT_EQ(sizes_of(plan_all(list)), std::vector<size_t>{50});
}

TEST(BatchPlan, WhatTheBatchReadCannotDeliver_IsSaid) {
  TagEntry em = make_entry("B", kBool, {{0, 7}});
  em.device_kind = kEm;
  const TagList list = make_list({make_entry("a", kSint), make_entry("b", kDate), make_entry("c", kLint, {{0, 1}}), em,
                                  make_entry("d", kLint), make_string("s", 4), make_entry("e", kBool, {{0, 7}})});
  for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(why_not_batched(whole_tag(list.tags[i]), false)) << i;
  for (size_t i = 4; i < 7; ++i) EXPECT_FALSE(why_not_batched(whole_tag(list.tags[i]), false)) << i;
}

TEST(BatchPlan, HalfOfAWideVariable_IsNoCompleteBatch) {
  const TagList list = make_list({make_entry("L", kLint)});
  Batch batch = plan_all(list).at(0);
  EXPECT_TRUE(is_read_completely(batch, {false, 0}));
  batch.pop_back();
  EXPECT_FALSE(is_read_completely(batch, {false, 0}));
  EXPECT_FALSE(is_read_completely({}, {false, 0}));
}

}  // namespace
}  // namespace plc_client::core
