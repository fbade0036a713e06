// Tests of the range checks of register ids and of the way from an id to its record.
#include "plc_driver/tags/tag_lookup.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

using plc::check_id;
using plc::find_entry;
using plc::IdRange;

// A table of three plain records and two groups, 0x40000 to 0x40002 in block 0 and 0x42000 to 0x42001 in block 1.
class TagLookup : public testing::Test {
 protected:
  TagLookup() {
    for (uint32_t i = 0; i < 4; ++i) {
      group0_[i].tag_id = 0x40000 + i;
      group1_[i].tag_id = 0x42000 + i;
    }
    groups_[0] = {3, group0_.data()};
    groups_[1] = {2, group1_.data()};
    group_ids_[1] = 1;
    table_.entries = plain_.data();
    table_.indexed_groups = groups_.data();
    table_.tag_count = 3;
    table_.max_indexed_id = 0x42001;
  }

  TagEntry* find(uint32_t id) const { return find_entry(table_, group_ids_.data(), id); }

  std::array<TagEntry, 3> plain_{};
  std::array<TagEntry, 4> group0_{};
  std::array<TagEntry, 4> group1_{};
  std::array<IndexedTagEntry, 3> groups_{};
  std::array<uint32_t, 2048> group_ids_{};
  TagTable table_{};
};

TEST_F(TagLookup, IdBehindTheLastBlock_HasNoRecordWhateverLiesBehindTheBlocks) {
  std::array<uint32_t, 2049> numbers{};
  constexpr uint32_t kFirstBehind = (32 + 2048) << 13;
  group0_[0].tag_id = kFirstBehind;
  table_.max_indexed_id = kFirstBehind + 2;
  EXPECT_EQ(find_entry(table_, numbers.data(), kFirstBehind), nullptr);
  EXPECT_EQ(find_entry(table_, numbers.data(), UINT32_MAX), nullptr);
}

TEST_F(TagLookup, PlainIdBelowTheCount_IsInside) {
  EXPECT_EQ(check_id(table_, 0), IdRange::kInside);
  EXPECT_EQ(check_id(table_, 2), IdRange::kInside);
  EXPECT_EQ(find(0), &plain_[0]);
  EXPECT_EQ(find(2), &plain_[2]);
}

TEST_F(TagLookup, PlainIdFromTheCountOn_IsMissing) {
  EXPECT_EQ(check_id(table_, 3), IdRange::kPlainMissing);
  EXPECT_EQ(check_id(table_, 0x3FFFE), IdRange::kPlainMissing);
  EXPECT_EQ(find(3), nullptr);
}

TEST_F(TagLookup, Id3ffff_PassesTheChecksAndHasNoRecord_D9) {
  EXPECT_EQ(check_id(table_, 0x3FFFF), IdRange::kInside);
  EXPECT_EQ(find(0x3FFFF), nullptr);
}

TEST_F(TagLookup, Id3ffffBelowTheCount_IsARecord) {
  std::vector<TagEntry> many(0x40000);
  table_.entries = many.data();
  table_.tag_count = 0x40000;
  EXPECT_EQ(find(0x3FFFF), &many[0x3FFFF]);
}

TEST_F(TagLookup, IndexedIdBelowTheLargest_IsInside) {
  EXPECT_EQ(check_id(table_, 0x40000), IdRange::kInside);
  EXPECT_EQ(check_id(table_, 0x42000), IdRange::kInside);
  EXPECT_EQ(find(0x40000), &group0_[0]);
  EXPECT_EQ(find(0x40002), &group0_[2]);
  EXPECT_EQ(find(0x42000), &group1_[0]);
}

TEST_F(TagLookup, LargestIndexedId_IsRefused_D10) {
  EXPECT_EQ(check_id(table_, 0x42001), IdRange::kIndexedMissing);
  EXPECT_EQ(check_id(table_, 0x42002), IdRange::kIndexedMissing);
  EXPECT_EQ(check_id(table_, 0xFFFFFF), IdRange::kIndexedMissing);
}

TEST_F(TagLookup, NoIndexedIds_RefuseThemAll) {
  table_.indexed_groups = nullptr;
  table_.max_indexed_id = 0;
  EXPECT_EQ(check_id(table_, 0x40000), IdRange::kIndexedMissing);
  EXPECT_EQ(find(0x40000), nullptr);
}

TEST_F(TagLookup, IndexOutsideItsGroup_HasNoRecord) {
  EXPECT_EQ(find(0x40003), nullptr) << "the spare record is not in the group";
  EXPECT_EQ(find(0x41FFF), nullptr);
  EXPECT_EQ(find(0x42002), nullptr);
}

TEST_F(TagLookup, IdBelowTheFirstOfItsGroup_HasNoRecord) {
  group0_[0].tag_id = 0x40010;
  EXPECT_EQ(find(0x4000F), nullptr);
}

TEST_F(TagLookup, GroupNumberThatTheTableDoesNotHave_HasNoRecord) {
  group_ids_[0] = 2;
  EXPECT_EQ(find(0x40000), nullptr);
  group_ids_[0] = 0xFFFFFFFF;
  EXPECT_EQ(find(0x40000), nullptr);
}

TEST_F(TagLookup, BlockThatNoRunStartedIn_FallsBackOnTheFirstGroup) {
  EXPECT_EQ(find(0x44000), nullptr) << "far outside group 0";
  group0_[0].tag_id = 0x44000;
  EXPECT_EQ(find(0x44000), &group0_[0]);
}

TEST_F(TagLookup, HighestIdOfTheHost_StaysInsideTheGroupTable) { EXPECT_EQ(find(0xFFFFFF), nullptr); }

}  // namespace
