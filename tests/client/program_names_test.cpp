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

TEST(ProgramNames, CutIsLikelyWhereAProfileSaysSoAndBehindLongNames) {
  EXPECT_FALSE(is_likely_cut({}, "PackagingLineNorth", 15));
  EXPECT_TRUE(is_likely_cut({}, "PackagingLineNorth", 16));
  EXPECT_TRUE(is_likely_cut({{"Main2", "Mai"}, 4, 4}, "Main2", 4));
}

TEST(ProgramNames, BeginningThatIsDeclaredItself_IsNotCut) {
  const ProgramNames names{{"Main", "Main2"}, 4, {}};
  EXPECT_TRUE(is_beginning_declared(names, "Main2", 4));
  EXPECT_FALSE(is_beginning_declared(names, "Main2", 3));
  EXPECT_FALSE(is_likely_cut(names, "Main2", 4));
}

TEST(ProgramNames, BeginningThatIsCutElsewhere_IsNotCut) {
  EXPECT_FALSE(is_likely_cut({{}, 20, {}}, "PackagingLineNorth", 16));
  EXPECT_FALSE(is_likely_cut({{}, 3, {}}, "Main2", 4));
  EXPECT_TRUE(is_likely_cut({{}, 6, {}}, "Füllen2", 7)) << "by characters, not by bytes";
}

TEST(ProgramNames, BeginningShorterThanANameOfTheDirectory_IsNotCut) {
  EXPECT_FALSE(is_likely_cut({{}, 4, 5}, "Main2", 4));
  EXPECT_FALSE(is_likely_cut({{}, {}, 17}, "PackagingLineNorth", 16));
}

TEST(ProgramNames, NothingOrAllButBlanks_IsNotCut) {
  EXPECT_FALSE(is_likely_cut({{}, 0, {}}, "Main2", 0));
  EXPECT_FALSE(is_likely_cut({{}, 7, {}}, "Filling ", 7));
  EXPECT_FALSE(is_likely_cut({{}, 7, {}}, "Filling\xC2\xA0 ", 7));
  EXPECT_TRUE(is_likely_cut({{}, 7, {}}, "Filling 2", 7));
  EXPECT_FALSE(lacks_blanks_only("Filling", 7));
}

TEST(ProgramNames, Rivals_AreOtherDeclaredNamesWithTheSameBeginningOnce) {
  const ProgramNames names{{"Main3", "Main2", "Mai", "Main3", "Main22", "Pump2"}, {}, {}};
  EXPECT_EQ(rivals(names, "Main2", 4), (std::vector<std::string>{"Main22", "Main3"}));
  EXPECT_EQ(rivals(names, "Pump2", 4), std::vector<std::string>());
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
