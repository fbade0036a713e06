// Tests of the list of loaded tag files and of their names.
#include "plc_driver/tags/tag_table.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/support/captured_output.h"
#include "tests/support/guarded_buffer.h"
#include "tests/support/wrapped_calls.h"

namespace {

using plc_test::capture_output;
using plc_test::wrapped_calls;

constexpr uint32_t kCounts[2] = {3, 0x40002};

class TagTableList : public testing::Test {
 protected:
  TagTableList() { init_tag(&head_); }
  ~TagTableList() override {
    wrapped_calls().reset();
    while (head_.links.next != &head_.links) {
      TagTable* table = front();
      head_.links.next = table->links.next;
      free(table->name);
      free(table);
    }
  }

  TagTable* front() {
    void* const node = reinterpret_cast<char*>(head_.links.next) - offsetof(TagTable, links);
    return static_cast<TagTable*>(node);
  }

  TagTable head_{};
};

TEST_F(TagTableList, NewList_IsEmpty) {
  EXPECT_EQ(head_.links.next, &head_.links);
  EXPECT_EQ(head_.links.prev, &head_.links);
  EXPECT_EQ(get_tagtable(&head_, "A"), nullptr);
}

TEST_F(TagTableList, AddedTable_IsFoundWithAllItWasGiven) {
  TagEntry entries[1] = {};
  IndexedTagEntry groups[2] = {};
  char name[] = "PLC1_0.csv";
  EXPECT_EQ(add_tagtable(&head_, name, entries, groups, kCounts), 1);
  name[3] = 'X';  // the node has a copy of its own
  TagTable* table = get_tagtable(&head_, "PLC1_0.csv");
  ASSERT_NE(table, nullptr);
  EXPECT_STREQ(table->name, "PLC1_0.csv");
  EXPECT_EQ(table->entries, entries);
  EXPECT_EQ(table->indexed_groups, groups);
  EXPECT_EQ(table->tag_count, 3U);
  EXPECT_EQ(table->max_indexed_id, 0x40002U);
  EXPECT_EQ(get_tagtable(&head_, "PLC1_0.csv"), table) << "the same node again";
  EXPECT_EQ(get_tagtable(&head_, "PLC1_0.cs"), nullptr);
}

TEST_F(TagTableList, SecondTable_IsFoundFirst) {
  ASSERT_EQ(add_tagtable(&head_, "one", nullptr, nullptr, kCounts), 1);
  TagTable* first = front();
  ASSERT_EQ(add_tagtable(&head_, "two", nullptr, nullptr, kCounts), 1);
  EXPECT_STREQ(front()->name, "two");
  EXPECT_EQ(get_tagtable(&head_, "one"), first);
  ASSERT_EQ(add_tagtable(&head_, "one", nullptr, nullptr, kCounts), 1);
  EXPECT_EQ(get_tagtable(&head_, "one"), front());
  EXPECT_NE(get_tagtable(&head_, "one"), first);
}

TEST_F(TagTableList, Links_FormACircleThroughTheLinkPairs) {
  ASSERT_EQ(add_tagtable(&head_, "one", nullptr, nullptr, kCounts), 1);
  ASSERT_EQ(add_tagtable(&head_, "two", nullptr, nullptr, kCounts), 1);
  TagTable* two = get_tagtable(&head_, "two");
  TagTable* one = get_tagtable(&head_, "one");
  EXPECT_EQ(head_.links.next, &two->links);
  EXPECT_EQ(two->links.next, &one->links);
  EXPECT_EQ(one->links.next, &head_.links);
  EXPECT_EQ(head_.links.prev, &one->links);
  EXPECT_EQ(one->links.prev, &two->links);
  EXPECT_EQ(two->links.prev, &head_.links);
}

TEST_F(TagTableList, InitTag_ForgetsTheNodesWithoutFreeingThem_D8) {
  ASSERT_EQ(add_tagtable(&head_, "one", nullptr, nullptr, kCounts), 1);
  TagTable* held = get_tagtable(&head_, "one");
  init_tag(&head_);
  EXPECT_EQ(get_tagtable(&head_, "one"), nullptr);
  EXPECT_STREQ(held->name, "one");
  free(held->name);
  free(held);
}

TEST_F(TagTableList, RefusedNode_PrintsAndGivesMinusOne) {
  wrapped_calls().allocations_until_failure = 0;
  int result = 0;
  EXPECT_EQ(capture_output([&] { result = add_tagtable(&head_, "one", nullptr, nullptr, kCounts); }),
            "malloc plc_tag failed");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(get_tagtable(&head_, "one"), nullptr);
}

TEST_F(TagTableList, RefusedName_PrintsAndGivesMinusTwo) {
  wrapped_calls().allocations_until_failure = 1;
  int result = 0;
  EXPECT_EQ(capture_output([&] { result = add_tagtable(&head_, "one", nullptr, nullptr, kCounts); }),
            "malloc name failed");
  EXPECT_EQ(result, -2);
  EXPECT_EQ(get_tagtable(&head_, "one"), nullptr);
}

// The name for an address and an area, from both kinds of request.
std::string file_name(uint32_t ip_address, uint16_t area) {
  const CommSettings settings = {0, ip_address, 5000, 0, 0};
  RegRequest request{};
  request.area = area;
  BatchReadRequest batch[2] = {};
  batch[0].area = area;
  batch[1].area = 7;
  plc_test::GuardedBuffer single_name(plc::kFileNameBytes, 0xEE);
  plc_test::GuardedBuffer batch_name(plc::kFileNameBytes, 0xEE);
  const int length = get_csv_name(&settings, &request, single_name.text());
  EXPECT_EQ(get_csv_name_batch(&settings, batch, batch_name.text()), length);
  EXPECT_STREQ(batch_name.text(), single_name.text());
  EXPECT_TRUE(single_name.guards_intact());
  EXPECT_TRUE(batch_name.guards_intact());
  const std::string name = single_name.text();
  EXPECT_EQ(name.size(), static_cast<size_t>(length));
  return name;
}

TEST(TagFileName, AddressAndArea_AreInTheName) {
  EXPECT_EQ(file_name(0x0A000001, 12), "PLCA000001_12.csv");
  EXPECT_EQ(file_name(0xC0A8000A, 3), "PLCC0A8000A_3.csv");
  EXPECT_EQ(file_name(0xC0A8000A, 1), "PLCC0A8000A_1.csv");
  EXPECT_EQ(file_name(0x7F000001, 0), "PLC7F000001_0.csv");
}

TEST(TagFileName, EndsOfBothNumbers_AreReached) {
  EXPECT_EQ(file_name(0xFFFFFFFF, 65535), "PLCFFFFFFFF_65535.csv");
  EXPECT_EQ(file_name(0, 0), "PLC0_0.csv");
}

}  // namespace
