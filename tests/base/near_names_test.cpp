// Tests of names that somebody may have meant.
#include "base/near_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using plc_base::did_you_mean;
using plc_base::near_names;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(NearNames, NearestComesFirstAndFarOnesNotAtAll) {
  EXPECT_THAT(near_names("Sped", {"Spread", "Speed", "Torque", "Speed"}), ElementsAre("Speed", "Spread"));
  EXPECT_THAT(near_names("SPEED", {"Speed"}), ElementsAre("Speed"));
  EXPECT_THAT(near_names("x", {"Speed", "abc"}), IsEmpty());
}

TEST(NearNames, AtMostFiveAreNamed) {
  EXPECT_EQ(near_names("name", {"name1", "name2", "name3", "name4", "name5", "name6"}).size(), 5U);
}

TEST(DidYouMean, SaysNothingWithoutANearName) {
  EXPECT_EQ(did_you_mean("raed", {"read", "write", "watch"}), "did you mean read?");
  EXPECT_EQ(did_you_mean("wach", {"watch", "match"}), "did you mean watch or match?");
  EXPECT_EQ(did_you_mean("frobnicate", {"read", "write"}), "");
}

}  // namespace
