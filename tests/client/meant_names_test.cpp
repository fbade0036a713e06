// Tests of what somebody meant who wrote a variable in another way.
#include "client/tags/meant_names.h"

#include <gtest/gtest.h>

#include "tests/client/host_test_records.h"

namespace plc_client::core {
namespace {

using namespace plc_client_test;

TEST(MeantNames, TextInAnotherSpelling_IsGivenInTheUsualOne) {
  const TagList list =
      make_list({make_entry("Motor.Speed", kInt), make_entry("Table", kInt, {{0, 9}}),
                 make_entry("Grid", kInt, {{0, 9}, {0, 4}}), make_local(make_entry("Count", kInt), "MAIN")});
  const std::pair<const char*, const char*> spellings[] = {
      {"Motor.Speed ", "Motor.Speed"}, {" Motor.Speed:", "Motor.Speed"}, {"Motor.Speed[0]", "Motor.Speed"},
      {"Table(1)", "Table[1]"},        {"Table[0-4]", "Table[0..4]"},    {"Table(0-4)", "Table[0..4]"},
      {"Grid[1][2]", "Grid[1,2]"},     {"Grid(1,2)", "Grid[1,2]"},       {"Grid(1)(2)", "Grid[1,2]"},
      {"MAIN/Count,", "MAIN/Count"}};
  for (const auto& [typed, meant] : spellings) EXPECT_EQ(respelled(list, typed), meant) << typed;
}

TEST(MeantNames, TextThatMeansNoVariable_HasNoOtherSpelling) {
  const TagList list = make_list({make_entry("Speed", kInt), make_entry("Table", kInt, {{0, 9}})});
  for (const char* typed : {"Speed", "Sped", "Sped[0]", "", ":", "[1]", "Table[", "Table(10)", "Table[*]"}) {
    EXPECT_EQ(respelled(list, typed), std::nullopt) << typed;
  }
}

}  // namespace
}  // namespace plc_client::core
