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
  index.finish();
  EXPECT_EQ(index.candidates("Speed"), (std::vector<uint32_t>{7, 2}));
  EXPECT_EQ(index.candidates("Torque"), (std::vector<uint32_t>{3}));
  EXPECT_TRUE(index.candidates("Spee").empty());
}

TEST(NameIndex, Nothing_HasNoCandidates) { EXPECT_TRUE(NameIndex().candidates("Speed").empty()); }

TEST(NameIndex, EachOfManyNames_IsAmongItsCandidates) {
  constexpr uint32_t kNames = 20000;
  NameIndex index;
  index.reserve(kNames);
  for (uint32_t i = 0; i < kNames; ++i) index.add("Name" + std::to_string(i), i);
  index.finish();
  for (uint32_t i = 0; i < kNames; ++i) {
    const std::vector<uint32_t> found = index.candidates("Name" + std::to_string(i));
    ASSERT_EQ(std::count(found.begin(), found.end(), i), 1) << i;
  }
}

// Among so many, a step for each pair would take minutes.
TEST(NameIndex, OneNameManyTimes_IsKeptAsFastAsOthers) {
  constexpr uint32_t kNames = 2000000;
  NameIndex index;
  index.reserve(kNames);
  for (uint32_t i = 0; i < kNames; ++i) index.add("", i);
  index.finish();
  EXPECT_EQ(index.candidates("").size(), kNames);
  EXPECT_TRUE(index.candidates("Speed").empty());
}

}  // namespace
}  // namespace plc_client::core
