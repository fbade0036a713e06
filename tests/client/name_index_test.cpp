// Tests of the table by which names are found.
#include "client/tags/name_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace plc_client::core {
namespace {

TEST(NameIndex, NamesAddedTwice_AreGivenInTheirOrder) {
  NameIndex index;
  index.reserve(3);
  index.add("Speed", 7);
  index.add("Torque", 3);
  index.add("Speed", 2);
  EXPECT_EQ(index.candidates("Speed"), (std::vector<uint32_t>{7, 2}));
  EXPECT_EQ(index.candidates("Torque"), (std::vector<uint32_t>{3}));
  EXPECT_TRUE(index.candidates("Spee").empty());
}

TEST(NameIndex, Nothing_HasNoCandidates) { EXPECT_TRUE(NameIndex().candidates("Speed").empty()); }

// Names behind the last place of the table stand at its beginning.
TEST(NameIndex, EachOfManyNames_IsAmongItsCandidates) {
  constexpr uint32_t kNames = 20000;
  NameIndex index;
  index.reserve(kNames);
  for (uint32_t i = 0; i < kNames; ++i) index.add("Name" + std::to_string(i), i);
  for (uint32_t i = 0; i < kNames; ++i) {
    const std::vector<uint32_t> found = index.candidates("Name" + std::to_string(i));
    ASSERT_EQ(std::count(found.begin(), found.end(), i), 1) << i;
  }
}

}  // namespace
}  // namespace plc_client::core
