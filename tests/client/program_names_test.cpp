// Tests of what tells a program's name that was cut short from the name of another program.
#include "client/driver/program_names.h"

#include <gtest/gtest.h>

#include "client/tags/tag_list.h"
#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

TEST(ProgramNames, LengthsAreThoseThatTravel) {
  EXPECT_EQ(directory_units("Main"), 4U);
  EXPECT_EQ(directory_units("Füllen"), 6U);
  EXPECT_EQ(directory_units("充填"), 2U);
  EXPECT_EQ(directory_units("\xF0\x9F\x98\x80"), 2U);
}

TEST(ProgramNames, BeginningThatNothingSpeaksAgainst_CanBeACutName) {
  EXPECT_FALSE(is_another_name({}, "Main2", 4));
  EXPECT_FALSE(is_another_name({{"Main2", "Mai"}, 4, 4}, "Main2", 4));
}

TEST(ProgramNames, CutIsLikelyWhereAProfileSaysSoAndBehindLongNames) {
  EXPECT_FALSE(is_likely_cut({}, 15));
  EXPECT_TRUE(is_likely_cut({}, 16));
  EXPECT_TRUE(is_likely_cut({{}, 4, {}}, 4));
  EXPECT_FALSE(is_likely_cut({{}, 5, {}}, 4));
}

TEST(ProgramNames, BeginningThatIsDeclaredItself_IsAnother) {
  EXPECT_TRUE(is_another_name({{"Main", "Main2"}, {}, {}}, "Main2", 4));
}

TEST(ProgramNames, BeginningThatIsCutElsewhere_IsAnother) {
  EXPECT_TRUE(is_another_name({{}, 20, {}}, "Main2", 4));
  EXPECT_TRUE(is_another_name({{}, 3, {}}, "Main2", 4));
  EXPECT_FALSE(is_another_name({{}, 6, {}}, "Füllen2", 7)) << "by characters, not by bytes";
}

TEST(ProgramNames, BeginningShorterThanANameOfTheDirectory_IsAnother) {
  EXPECT_TRUE(is_another_name({{}, {}, 5}, "Main2", 4));
}

TEST(ProgramNames, NothingOrAllButBlanks_IsAnother) {
  EXPECT_TRUE(is_another_name({}, "Main2", 0));
  EXPECT_TRUE(is_another_name({}, "Filling ", 7));
  EXPECT_TRUE(is_another_name({}, "Filling\xC2\xA0 ", 7));
  EXPECT_FALSE(is_another_name({}, "Filling 2", 7));
  EXPECT_FALSE(lacks_blanks_only("Filling", 7));
}

TEST(ProgramNames, LongerOnes_AreTheLongestFirstAndNotTooMany) {
  const ProgramNames names{{"Main", "Recipes", "Filling", "Main2", "Packaging", "Recipes"}, {}, {}};
  EXPECT_EQ(longer_names(names, 4), (std::vector<std::string>{"Packaging", "Filling", "Recipes", "Main2"}));
  EXPECT_EQ(longer_names(names, 9), std::vector<std::string>());
  ProgramNames many;
  for (int i = 100; i < 200; ++i) many.declared.push_back("Program" + std::to_string(i));
  EXPECT_EQ(longer_names(many, 4).size(), 64U);
}

TEST(ProgramNames, OfATagList_AreThoseOfLocalVariablesOnce) {
  const TagList list =
      make_list({make_entry("Speed", kInt), make_local(make_entry("Step", kInt), "Main2"),
                 make_local(make_entry("Step", kInt), "Main"), make_local(make_entry("Two", kInt), "Main"),
                 make_local(make_entry("One", kInt), "")});
  EXPECT_EQ(program_names(list), (std::vector<std::string>{"Main", "Main2"}));
}

}  // namespace
}  // namespace plc_client::core
