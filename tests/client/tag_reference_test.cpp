// Tests of names and subscripts as users write them.
#include "client/tags/tag_reference.h"

#include <gtest/gtest.h>

#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

class TagReferenceTest : public testing::Test {
 protected:
  TagList list_ =
      make_list({make_entry("Speed", kInt), make_entry("Table", kInt, {{1, 4}}),
                 make_entry("Grid", kInt, {{0, 1}, {0, 2}}), make_entry("Line[#2].Speed", kInt),
                 make_local(make_entry("Count", kInt), "MAIN"), make_local(make_entry("Count", kInt), "SUB"),
                 make_entry("Both", kInt), make_local(make_entry("Both", kInt), "MAIN"), make_string("Text", 8),
                 make_entry("Huge", kInt, {{0, 2000000000}, {0, 2000000000}})});

  std::string why_refused(const std::string& text) {
    try {
      find_reference(list_, text);
    } catch (const ReferenceError& error) {
      return error.what();
    }
    return {};
  }
};

TEST_F(TagReferenceTest, Scalar_HasOneElement) {
  const TagReference reference = find_reference(list_, "Speed");
  EXPECT_EQ(reference.tag, &list_.tags[0]);
  EXPECT_EQ(chosen_elements(reference), std::vector<Subscripts>{Subscripts{}});
  EXPECT_TRUE(reference.extents.empty());
}

TEST_F(TagReferenceTest, ArrayWithoutSubscripts_MeansAllElements) {
  const TagReference reference = find_reference(list_, "Grid");
  EXPECT_EQ(chosen_elements(reference), (std::vector<Subscripts>{{0, 0}, {0, 1}, {0, 2}, {1, 0}, {1, 1}, {1, 2}}));
  EXPECT_EQ(reference.extents, (std::vector<size_t>{2, 3}));
}

TEST_F(TagReferenceTest, SingleSubscript_GivesNoExtent) {
  const TagReference reference = find_reference(list_, "Grid[1,0..1]");
  EXPECT_EQ(chosen_elements(reference), (std::vector<Subscripts>{{1, 0}, {1, 1}}));
  EXPECT_EQ(reference.extents, (std::vector<size_t>{2}));
  EXPECT_EQ(reference.text, "Grid[1,0..1]");
}

TEST_F(TagReferenceTest, NameWithSubscripts_IsANameFirst) {
  EXPECT_EQ(find_reference(list_, "Line[2].Speed").tag, &list_.tags[3]);
  EXPECT_EQ(find_reference(list_, "Line[#2].Speed").tag, &list_.tags[3]);
}

TEST_F(TagReferenceTest, AmbiguousName_AsksForTheScope) {
  EXPECT_EQ(why_refused("Count"), "which of them: MAIN/Count, SUB/Count?");
  EXPECT_EQ(find_reference(list_, "SUB/Count").tag, &list_.tags[5]);
}

TEST_F(TagReferenceTest, GlobalAndLocalOfOneName_BareNameIsTheGlobal) {
  EXPECT_EQ(find_reference(list_, "Both").tag, &list_.tags[6]);
  EXPECT_EQ(find_reference(list_, "MAIN/Both").tag, &list_.tags[7]);
}

TEST_F(TagReferenceTest, SubscriptOutsideTheDeclaration_IsRefused) {
  EXPECT_EQ(why_refused("Table[0]"), "subscript 0 is outside 1..4");
  EXPECT_EQ(why_refused("Table[2..5]"), "subscript 2..5 is outside 1..4");
  EXPECT_EQ(why_refused("Table[3..2]"), "subscript 3..2 runs backwards");
  EXPECT_EQ(why_refused("Table[99999999999]"), "subscript 99999999999 is outside 1..4");
}

TEST_F(TagReferenceTest, WrongNumberOfSubscripts_IsRefused) {
  EXPECT_EQ(why_refused("Grid[1]"), "it takes 2 subscripts, not 1: INT[0..1,0..2]");
  EXPECT_EQ(why_refused("Grid[1,1,1]"), "it takes 2 subscripts, not 3: INT[0..1,0..2]");
  EXPECT_EQ(why_refused("Speed[0]"), "it is not an array: INT");
  EXPECT_EQ(why_refused("Text[0]"), "it is not an array: STRING(8)");
}

TEST_F(TagReferenceTest, SubscriptThatIsNoNumber_IsRefused) {
  for (const char* text : {"Table[]", "Table[a]", "Table[1 ]", "Table[1..]", "Table[..2]", "Table[1,]"}) {
    EXPECT_NE(why_refused(text), "") << text;
  }
}

TEST_F(TagReferenceTest, UnknownName_IsRefused) {
  EXPECT_EQ(why_refused("Nothing"), "the tag file has no variable of this name");
  EXPECT_EQ(why_refused("Nothing[1]"), "the tag file has no variable of this name");
  EXPECT_NE(why_refused(""), "");
}

TEST_F(TagReferenceTest, MoreElementsThanARequestReaches_AreRefused) {
  EXPECT_EQ(why_refused("Huge"), "more than 65536 elements: choose some of them");
  EXPECT_EQ(chosen_elements(find_reference(list_, "Huge[1,1]")).size(), 1U);
}

TEST_F(TagReferenceTest, Assignment_IsCutAtTheFirstSignOutsideBrackets) {
  std::string_view name;
  std::string_view value;
  split_assignment("Text=a=b", name, value);
  EXPECT_EQ(name, "Text");
  EXPECT_EQ(value, "a=b");
  EXPECT_THROW(split_assignment("Text", name, value), ReferenceError);
}

}  // namespace
}  // namespace plc_client::core
