// Tests of the numbers by which a host asks for the records of a tag file.
#include "client/tags/tag_list.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>

#include "client/client_error.h"
#include "client/driver/driver_session.h"
#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

struct Groups {
  std::vector<std::vector<TagEntry>> entries;
  std::vector<IndexedTagEntry> groups;
  std::vector<uint32_t> ids = std::vector<uint32_t>(2048, 0);

  void add(const std::vector<uint32_t>& tag_ids) {
    std::vector<TagEntry> records;
    for (const uint32_t id : tag_ids) {
      records.push_back(make_entry("T" + std::to_string(id), kInt));
      records.back().tag_id = id;
    }
    entries.push_back(records);
  }

  TagList list(uint32_t max_indexed_id) {
    groups.clear();
    for (std::vector<TagEntry>& records : entries) {
      groups.push_back({static_cast<uint8_t>(records.size()), records.data()});
    }
    groups.push_back({0, nullptr});
    return make_tag_list(nullptr, 0, groups.data(), max_indexed_id, ids);
  }
};

// What the system said to the driver of this process, which prints nothing.
DriverLibrary library_that_fails_with(int reason) {
  static int said = 0;
  said = reason;
  DriverLibrary library;
  library.build_tagtable = [](TagEntry**, IndexedTagEntry**, const char*, uint32_t*) -> uint32_t* {
    if (said != 0) errno = said;
    return nullptr;
  };
  return library;
}

std::pair<ClientError::Kind, std::string> refusal_of(const DriverLibrary& library) {
  try {
    load_tag_list(library, "panel.csv");
  } catch (const ClientError& error) {
    return {error.kind(), error.what()};
  }
  return {};
}

TEST(TagList, MemoryThatEnds_IsNoFaultOfTheFile) {
  EXPECT_THROW(load_tag_list(library_that_fails_with(ENOMEM), "panel.csv"), std::bad_alloc);
}

TEST(TagList, DescriptorsThatEnd_AreNoFaultOfTheFile) {
  EXPECT_EQ(refusal_of(library_that_fails_with(EMFILE)),
            std::make_pair(ClientError::Kind::kOutput,
                           std::string("cannot open the tag file: Too many open files. Try: more descriptors for the "
                                       "program, ulimit -n shows how many it may open")));
}

TEST(TagList, FileThatTheDriverRejects_IsToldAsThat) {
  errno = ENOMEM;  // of a call before
  EXPECT_EQ(refusal_of(library_that_fails_with(0)),
            std::make_pair(ClientError::Kind::kTagFile, std::string("the driver cannot use the tag file panel.csv")));
}

TEST(TagList, PlainRecords_AreNumberedInFileOrder) {
  const TagList list = make_list({make_entry("a", kInt), make_entry("b", kInt)});
  EXPECT_EQ(list.tags[0].register_id, 0U);
  EXPECT_EQ(list.tags[1].register_id, 1U);
  EXPECT_EQ(find_tag_by_id(list, 1), &list.tags[1]);
  EXPECT_EQ(find_tag_by_id(list, 2), nullptr);
}

TEST(TagList, PlainRecordsFrom65536_CannotBeAskedFor) {
  // Names of their own: equal ones stand behind each other in the index, and the last would look for its place past
  // all.
  std::vector<TagEntry> entries;
  for (uint32_t record = 0; record <= 0x10001; ++record)
    entries.push_back(make_entry("a" + std::to_string(record), kInt));
  const TagList list = make_list(entries);
  EXPECT_TRUE(list.tags[0xFFFF].register_id.has_value());
  EXPECT_FALSE(list.tags[0x10000].register_id.has_value());
  EXPECT_NE(list.tags[0x10001].unreachable, "");
}

TEST(TagList, IndexedRecords_AreReachableBelowTheLargestId) {
  Groups groups;
  groups.add({0x40000, 0x40001, 0x40002});
  const TagList list = groups.list(0x40002);
  ASSERT_EQ(list.tags.size(), 3U);
  EXPECT_EQ(list.tags[0].register_id, 0x40000U);
  EXPECT_EQ(list.tags[1].register_id, 0x40001U);
  EXPECT_FALSE(list.tags[2].register_id.has_value());
}

TEST(TagList, SecondGroupInItsOwnBlock_IsReachable) {
  Groups groups;
  groups.add({0x40000, 0x40001});
  groups.add({0x42000, 0x42001, 0x42002});
  groups.ids[1] = 1;
  const TagList list = groups.list(0x42002);
  EXPECT_EQ(list.tags[1].register_id, 0x40001U);
  EXPECT_EQ(list.tags[2].register_id, 0x42000U);
  EXPECT_EQ(list.tags[3].register_id, 0x42001U);
}

TEST(TagList, TwoGroupsInOneBlock_TheFirstIsHidden) {
  Groups groups;
  groups.add({0x40000, 0x40001});
  groups.add({0x40010, 0x40011, 0x40012});
  groups.ids[0] = 1;
  const TagList list = groups.list(0x40012);
  EXPECT_FALSE(list.tags[0].register_id.has_value());
  EXPECT_EQ(list.tags[2].register_id, 0x40010U);
}

TEST(TagList, GroupBehindTheLargestFormedId_IsUnreachable) {
  Groups groups;
  groups.add({0x1000000, 0x1000001, 0x1000002});
  const TagList list = groups.list(0x1000002);
  EXPECT_FALSE(list.tags[0].register_id.has_value());
  EXPECT_EQ(list.tags[0].unreachable, "ids above 16777215 cannot be asked for: reg_type is one byte");
}

TEST(TagList, Request_CarriesTheIdInTypeAndAddress) {
  EXPECT_EQ(request_reg_type(5), 0);
  EXPECT_EQ(request_address(5, 3), 0x00050003U);
  EXPECT_EQ(request_reg_type(0x40001), 4);
  EXPECT_EQ(request_address(0x40001, 0), 0x00010000U);
  EXPECT_EQ(request_address(0x42345, 0xFFFF), 0x2345FFFFU);
}

TEST(TagList, PlainName_HasNoSignBeforeSubscripts) {
  EXPECT_EQ(plain_name("Grid[#1,#2]"), "Grid[1,2]");
  EXPECT_EQ(plain_name("Line[#2].Speed"), "Line[2].Speed");
  EXPECT_EQ(plain_name("No#1"), "No#1");
}

TEST(TagList, LocalName_IsQualifiedWithItsScope) {
  const TagList list = make_list({make_local(make_entry("Count", kInt), "MAIN\r")});
  EXPECT_EQ(list.tags[0].qualified_name, "MAIN/Count");
}

}  // namespace
}  // namespace plc_client::core
