// Variables: program numbers, places, the roads of bits, and names that lead to elements.
#include "tools/plc_sim/variables/variables.h"

#include <gmock/gmock.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>

#include "tests/support/typed_values.h"
#include "tests/tools/plc_sim/sim_support.h"
#include "tools/plc_sim/variables/values.h"

namespace plc_sim {
namespace {

using test::Bench;

TagDeclaration bool_tag(const std::string& name, const std::string& ranges, const std::string& device, bool is_global) {
  const std::string scope = is_global ? "1,0,0,," : "0,0,1,MAIN,";
  return read_tag_text("f", name + ",BOOL," + ranges + ",,a,b,c,1," + scope + device + "\n").tags.at(0);
}

struct RoadCase {
  const char* name;
  const char* ranges;
  const char* device;
  bool is_global;
  BitRoad road;
};

TEST(BitRoad, EveryKindOfBool_TakesTheRoadItsExchangesShare) {
  const std::vector<RoadCase> cases{{"B", "", "", true, BitRoad::kBit},
                                    {"B", "", "EM1", true, BitRoad::kBit},
                                    {"B", "[0..9]", "", true, BitRoad::kBit},
                                    {"B", "[0..9]", "EM1", true, BitRoad::kBoth},
                                    {"B", "[0..0]", "EM1", true, BitRoad::kBit},
                                    {"a.b", "", "", true, BitRoad::kWord},
                                    {"a.b", "", "DM1", true, BitRoad::kWord},
                                    {"a.b", "", "MR1", true, BitRoad::kBoth},
                                    {"a.b", "", "LR1", true, BitRoad::kBoth},
                                    {"a.b", "", "TM1", true, BitRoad::kBoth},
                                    {"a.b", "", "MR1", false, BitRoad::kBoth},
                                    {"a[1].b", "", "DM1", true, BitRoad::kWord},
                                    {"a[1].b", "", "EM1", true, BitRoad::kWord},
                                    {"a[1].b", "", "MR1", true, BitRoad::kBoth},
                                    {"a[1].b", "", "LR1", true, BitRoad::kBoth},
                                    {"a.b", "[0..9]", "DM1", true, BitRoad::kWord},
                                    {"a.b", "[0..9]", "EM1", true, BitRoad::kWord},
                                    {"a.b", "[0..9]", "ZF1", true, BitRoad::kBoth},
                                    {"a.b", "[0..1_0..1_0..1]", "DM1", true, BitRoad::kBoth}};
  for (const RoadCase& c : cases) {
    EXPECT_EQ(bit_road_for(bool_tag(c.name, c.ranges, c.device, c.is_global)), c.road)
        << c.name << c.ranges << " on " << c.device << (c.is_global ? "" : ", local");
  }
}

TEST(Variables, EveryElement_HasItsOwnPlace) {
  Bench bench(
      "I,INT,[0..9],,a,b,c,0,1\nD,DINT,[0..2_0..3],,a,b,c,1,1\nB,BOOL,[0..40],,a,b,c,2,1\nF,BOOL,,,a,b,c,3,1\n"
      "G,BOOL,,,a,b,c,4,1\nS,SINT,[0..2],,a,b,c,5,1\na.b,BOOL,,,a,b,c,6,1\na.c,BOOL,,,a,b,c,7,1\n"
      "T,STRING,,10,a,b,c,8,1\nX,DATE,,,a,b,c,9,1\n");
  std::set<std::tuple<int, int, uint32_t, uint32_t>> taken;
  size_t expected = 0;
  for (const auto& variable : bench.store.variables()) {
    for (uint32_t i = 0; i < variable->elements; ++i) {
      const Place place = bench.store.element_place(*variable, i);
      const uint32_t words = variable->is_flag() ? 1 : variable->units;
      for (uint32_t w = 0; w < words; ++w, ++expected) {
        const uint32_t bit = variable->is_flag() ? place.bit : 0;
        EXPECT_TRUE(taken.emplace(place.bank, static_cast<int>(place.part), place.word + w, bit).second)
            << variable->tag.name << " " << i;
      }
    }
  }
  EXPECT_EQ(taken.size(), expected);
}

TEST(Variables, HandleOfAnyPlace_LeadsBackToIt) {
  for (const Part part : {Part::kBitAddressed, Part::kBitWords, Part::kValueWords}) {
    Place place;
    place.bank = 23;
    place.part = part;
    place.word = 17;
    place.bit = part == Part::kBitAddressed ? 5 : 0;
    const auto back = place_of(handle_of(place));
    ASSERT_TRUE(back.has_value());
    EXPECT_EQ(back->part, place.part);
    EXPECT_EQ(back->word, place.word);
    EXPECT_EQ(back->bit, place.bit);
  }
  EXPECT_FALSE(place_of({23, 0x00100000}).has_value());
}

TEST(Variables, ProgramNumbers_ComeFromOptionThenFileThenFreeNumbers) {
  Bench bench(
      "A,INT,,,a,b,c,0,0,0,7,P1,\nB,INT,,,a,b,c,1,0,0,7,P22,\nC,INT,,,a,b,c,2,0,0,0,P333,\nD,INT,,,a,b,c,3,0,0,9,P4,\n",
      {{"P4", 200}});
  std::map<std::string, int> numbers;
  for (const Program& program : bench.store.directory()) numbers[program.name] = program.number;
  EXPECT_EQ(numbers, (std::map<std::string, int>{{"P1", 7}, {"P22", 1}, {"P333", 2}, {"P4", 200}}));
  EXPECT_EQ(bench.store.directory().front().name, "P333") << "no name may stand before one that it begins";
  EXPECT_TRUE(bench.store.resolve(uint8_t{200}, "D").has_value());
  EXPECT_FALSE(bench.store.resolve(uint8_t{9}, "D").has_value());
  EXPECT_FALSE(bench.store.resolve(std::nullopt, "D").has_value());
}

TEST(Variables, LocalWithoutProgramName_IsFoundUnderItsNumber) {
  Bench bench("A,INT,,,a,b,c,0,0,0,12,,\n");
  EXPECT_TRUE(bench.store.resolve(uint8_t{12}, "A").has_value());
  EXPECT_TRUE(bench.store.directory().empty());
  EXPECT_TRUE(bench.store.find_typed("#12/A").has_value());
}

TEST(Variables, ArrayElements_LieSideBySideInDeclaredOrder) {
  Bench bench("G,DINT,[0..2_0..3],,a,b,c,0,1\n");
  const auto first = bench.store.resolve(std::nullopt, "G[#0,#0]");
  const auto next = bench.store.resolve(std::nullopt, "G[#0,#1]");
  const auto row = bench.store.resolve(std::nullopt, "G[#1,#0]");
  ASSERT_TRUE(first && next && row);
  EXPECT_EQ(next->place.word, first->place.word + 2);
  EXPECT_EQ(row->place.word, first->place.word + 8);
}

TEST(Variables, BitOfOneDimensionalArray_HasItsSubscriptAsBitNumber) {
  Bench bench("a.f,BOOL,[3..40],,a,b,c,0,1,0,0,,DM1\n");
  for (const int subscript : {3, 15, 16, 40}) {
    const auto element = bench.store.resolve(std::nullopt, "a.f[#" + std::to_string(subscript) + "]");
    ASSERT_TRUE(element.has_value());
    EXPECT_EQ(element->place.bit, static_cast<uint32_t>(subscript % 16));
  }
}

TEST(Variables, SubscriptsOutsideTheBounds_KeepAPlaceOfTheirOwn) {
  Bench bench("A,INT,[1..3],,a,b,c,0,1\n");
  const auto outside = bench.store.resolve(std::nullopt, "A[#0]");
  ASSERT_TRUE(outside.has_value());
  EXPECT_FALSE(outside->index.has_value());
  const auto other = bench.store.resolve(std::nullopt, "A[#4]");
  const auto again = bench.store.resolve(std::nullopt, "A[#0]");
  EXPECT_EQ(again->place.word, outside->place.word);
  EXPECT_NE(other->place.word, outside->place.word);
  EXPECT_FALSE(bench.store.resolve(std::nullopt, "A[#0,#0]").has_value());
  EXPECT_FALSE(bench.store.resolve(std::nullopt, "A").has_value());
  EXPECT_FALSE(bench.store.resolve(std::nullopt, "Nobody").has_value());
}

TEST(Variables, ElementDeclaredUnderItsOwnName_IsTheArraysElement) {
  Bench bench("T[2],INT,,,a,b,c,0,1\nT,INT,[0..3],,a,b,c,1,1\nL[2].S,INT,,,a,b,c,2,1\n");
  const auto element = bench.store.resolve(std::nullopt, "T[#2]");
  ASSERT_TRUE(element.has_value());
  EXPECT_TRUE(element->variable->is_array());
  EXPECT_TRUE(bench.store.resolve(std::nullopt, "L[#2].S").has_value());
}

TEST(Variables, NameDeclaredTwiceDifferently_IsAProblemWithItsLine) {
  const TagFile file = read_tag_text("f", "A,INT,,,a,b,c,0,1\nA,INT,,,a,b,c,1,1\nA,DINT,,,a,b,c,2,1\n");
  VariableStore store;
  const auto problems = store.declare(file.tags, {}, DirectoryOrder::kFile);
  ASSERT_EQ(problems.size(), 1U);
  EXPECT_EQ(problems[0].line, 3U);
  EXPECT_THAT(problems[0].text, testing::HasSubstr("declared differently at f:1"));
}

TEST(Variables, MoreBitsThanABank_GoOnInAnotherExceptOnMr) {
  std::string lines = "a,BOOL,[0..30000],,a,b,c,0,1,0,0,,TM1\nb,BOOL,[0..30000],,a,b,c,1,1,0,0,,TM1\n";
  Bench bench(lines);
  EXPECT_EQ(bench.store.resolve(std::nullopt, "a[#0]")->place.bank, 8);
  EXPECT_NE(bench.store.resolve(std::nullopt, "b[#0]")->place.bank, 8);
  const TagFile file =
      read_tag_text("f", "a,BOOL,[0..30000],,a,b,c,0,1,0,0,,MR1\nb,BOOL,[0..30000],,a,b,c,1,1,0,0,,MR1\n");
  VariableStore store;
  EXPECT_EQ(store.declare(file.tags, {}, DirectoryOrder::kFile).size(), 1U);
}

TEST(Names, ArrayWhoseNameBeginsAnotherOne_IsNotTheOther) {
  Bench bench("Table,INT,[0..9],,a,b,c,0,1,0,0,,DM1\nTable2,INT,[0..9],,a,b,c,1,1,0,0,,DM1\n");
  const auto element = bench.store.find_typed("Table2[3]");
  ASSERT_TRUE(element);
  EXPECT_EQ(element->variable->tag.name, "Table2");
  EXPECT_EQ(element->index, 3U);
  EXPECT_EQ(bench.store.find_typed("Table[3]")->variable->tag.name, "Table");
  EXPECT_FALSE(bench.store.find_typed("Tables[3]"));
}

TEST(Values, SetAndShow_AgreeForEveryType) {
  const std::vector<std::tuple<std::string, std::string, std::string>> cases{
      {"BOOL", "true", "true"},
      {"SINT", "-128", "-128"},
      {"INT", "-1", "-1"},
      {"INT", "0xFFFF", "-1"},
      {"DINT", "-2147483648", "-2147483648"},
      {"LINT", "-9223372036854775808", "-9223372036854775808"},
      {"USINT", "255", "255"},
      {"UINT", "65535", "65535"},
      {"UDINT", "4294967295", "4294967295"},
      {"ULINT", "18446744073709551615", "18446744073709551615"},
      {"REAL", "1.5", "1.5"},
      {"LREAL", "-0.1", "-0.1"},
      {"BYTE", "5", "0x05"},
      {"WORD", "0x1234", "0x1234"},
      {"DWORD", "1", "0x00000001"},
      {"LWORD", "0xFEDCBA9876543210", "0xFEDCBA9876543210"},
      {"DATE", "77", "77"}};
  for (const auto& [type, text, shown] : cases) {
    Bench bench("A," + type + ",,,a,b,c,0,1\n");
    EXPECT_EQ(set_value(bench.store.memory(), *bench.store.find_typed("A"), text), "") << type;
    EXPECT_EQ(bench.value("A"), shown) << type;
  }
}

TEST(Names, PositionBeforeATextsStart_LeadsToTheVariableThatIsCalledSo) {
  Bench bench("S,STRING,,40,a,b,c,5,1\nS[-1],INT,,,a,b,c,6,1\n");
  const auto found = bench.store.resolve(std::nullopt, "S[#-1]");
  ASSERT_TRUE(found.has_value());
  EXPECT_EQ(found->variable->tag.name, "S[#-1]");
  EXPECT_FALSE(Bench("S,STRING,,40,a,b,c,5,1\n").store.resolve(std::nullopt, "S[#-1]").has_value());
}

TEST(Names, PositionBehindAllTexts_IsNotOneAtTheStart) {
  Bench bench("S,STRING,,40,a,b,c,5,1\n");
  EXPECT_EQ(bench.store.resolve(std::nullopt, "S[#4294967296]")->text_position, UINT32_MAX);
  EXPECT_EQ(bench.store.resolve(std::nullopt, "S[#4294967295]")->text_position, UINT32_MAX);
  EXPECT_EQ(bench.store.resolve(std::nullopt, "S[#79]")->text_position, 79U);
}

TEST(Values, TextsThatDoNotFit_AreRefused) {
  const std::vector<std::pair<std::string, std::string>> cases{{"BOOL", "2"},
                                                               {"SINT", "128"},
                                                               {"INT", "32768"},
                                                               {"UINT", "-1"},
                                                               {"INT", "x"},
                                                               {"INT", ""},
                                                               {"REAL", "1,5"},
                                                               {"DINT", "0x100000000"},
                                                               {"ULINT", "18446744073709551616"}};
  for (const auto& [type, text] : cases) {
    Bench bench("A," + type + ",,,a,b,c,0,1\n");
    EXPECT_NE(set_value(bench.store.memory(), *bench.store.find_typed("A"), text), "") << type << " " << text;
  }
  Bench bench("S,STRING,,3,a,b,c,0,1\n");
  EXPECT_NE(set_value(bench.store.memory(), *bench.store.find_typed("S"), "ABCD"), "");
  EXPECT_EQ(set_value(bench.store.memory(), *bench.store.find_typed("S"), "AB"), "");
  EXPECT_EQ(bench.value("S"), "\"AB\"");
}

TEST(Values, Text_IsShownAsItIsTypedAndIsItselfInJson) {
  Bench bench("S,STRING,,20,a,b,c,0,1\n");
  const Element element = *bench.store.find_typed("S");
  struct Shown {
    const char* typed;
    const char* shown;
    const char* json;
  };
  const Shown texts[] = {{"K\xC3\xA4se", "\"K\xC3\xA4se\"", "\"K\xC3\xA4se\""},
                         {"\"a\\n\\t\\\"\"", "\"a\\n\\t\\\"\"", "\"a\\n\\t\\\"\""},
                         {"\\xC3", "\"\\\\xC3\"", "\"\\\\xC3\""},
                         {"\"\\xC3\"", "\"\\xC3\"", "null"},
                         {"a\xE2\x80\xAE", "\"a\\xE2\\x80\\xAE\"", "\"a\xE2\x80\xAE\""}};
  for (const Shown& text : texts) {
    EXPECT_EQ(set_value(bench.store.memory(), element, text.typed), "");
    EXPECT_EQ(bench.value("S"), text.shown);
    EXPECT_EQ(value_json(bench.store.memory(), element).dump(), text.json);
    const std::string words = raw_text(bench.store.memory(), element);
    EXPECT_EQ(set_value(bench.store.memory(), element, text.shown), "");
    EXPECT_EQ(raw_text(bench.store.memory(), element), words) << "what is shown can be set";
  }
}

// "ffff 0000", the words of a number, the lowest first.
std::string words_of(uint64_t bits, size_t words) {
  std::string text;
  for (size_t i = 0; i < words; ++i, bits >>= 16U) {
    std::array<char, 8> word{};
    std::snprintf(word.data(), word.size(), i == 0 ? "%04x" : " %04x", static_cast<unsigned>(bits & 0xFFFFU));
    text += word.data();
  }
  return text;
}

// The same table as for plc-host write.
TEST(Values, SpellingsOfTheTable_AreTakenAsItSays) {
  for (const plc_test::TypedValue& typed : plc_test::kTypedValues) {
    Bench bench(std::string("A,") + typed.type + ",,,a,b,c,0,1,0,0,,\n");
    const Element element = *bench.store.find_typed("A");
    EXPECT_EQ(set_value(bench.store.memory(), element, typed.text), typed.problem) << typed.text;
    const std::string raw = raw_text(bench.store.memory(), element);
    const bool is_flag = raw.size() == 1;
    EXPECT_EQ(raw, is_flag ? std::to_string(typed.bits) : words_of(typed.bits, (raw.size() + 1) / 5))
        << typed.type << " " << typed.text;
  }
  for (const plc_test::TypedString& typed : plc_test::kTypedStrings) {
    Bench bench("S,STRING,,8,a,b,c,0,1,0,0,,\n");
    const Element element = *bench.store.find_typed("S");
    EXPECT_EQ(set_value(bench.store.memory(), element, typed.text), typed.problem) << typed.text;
    std::string expected(16, '\0');
    expected.replace(0, std::strlen(typed.bytes), typed.bytes);
    std::string words;
    for (size_t i = 0; i < 16; i += 2) {
      std::array<char, 8> word{};
      std::snprintf(word.data(), word.size(), i == 0 ? "%02x%02x" : " %02x%02x",
                    static_cast<unsigned>(static_cast<uint8_t>(expected[i])),
                    static_cast<unsigned>(static_cast<uint8_t>(expected[i + 1])));
      words += word.data();
    }
    EXPECT_EQ(raw_text(bench.store.memory(), element), words) << typed.text;
  }
}

TEST(Values, Sentinels_DifferForAllWordsOfAnArray) {
  Bench bench("A,INT,[0..9999],,a,b,c,0,1\n");
  std::set<std::string> values;
  const auto& variable = *bench.store.variables().front();
  for (uint32_t i = 0; i < variable.elements; ++i) {
    const Element element{bench.store.variables().front().get(), bench.store.element_place(variable, i), i, 0};
    set_sentinel(bench.store.memory(), element, i);
    values.insert(value_text(bench.store.memory(), element));
  }
  EXPECT_EQ(values.size(), 10000U);
}

}  // namespace
}  // namespace plc_sim
