// The classification of a batch: items, runs and counters.
#include <cstring>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/reads/read_plan.h"
#include "tests/driver/protocol/batch/batch_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class ReadPlan : public ProtocolTest {
 protected:
  // Classifies these slots; returns what was printed.
  std::string classify(const std::vector<BatchElement>& slots) {
    memset(plc::OMRON_TEMP, 0, sizeof plc::OMRON_TEMP);
    memset(plc::INIT_TAG, 0, sizeof plc::INIT_TAG);
    for (size_t i = 0; i < slots.size(); ++i) {
      plc::OMRON_TEMP[i].reg_id = slots[i].id;
      plc::OMRON_TEMP[i].element = slots[i].element;
      plc::OMRON_TEMP[i].run = slots[i].count;
    }
    TagTable* table = &loaded_table();
    return capture_output([&] { Reg_Classify_Sort(table, static_cast<int32_t>(slots.size())); });
  }

  static std::vector<std::string> items() {
    std::vector<std::string> names;
    for (const plc::ReadItem& item : plc::INIT_TAG) {
      if (item.name[0] != '\0') names.push_back(item.name);
    }
    return names;
  }

  static std::vector<uint32_t> runs(size_t count) {
    std::vector<uint32_t> all;
    for (size_t i = 0; i < count; ++i) all.push_back(plc::OMRON_TEMP[i].run);
    return all;
  }

  // The item that one BOOL slot makes, or what was printed instead.
  std::string bit_item(const TagEntry& tag, uint32_t element) {
    use_tags({tag});
    const std::string printed = classify({{0, element}});
    return printed.empty() ? items().at(0) : printed;
  }
};

using Names = std::vector<std::string>;
using Numbers = std::vector<uint32_t>;

constexpr char kOutOfRange[] = "Index out of range!\r\n";

TagEntry word_array() { return with_ranges(make_tag("D", 16), {0, 99}); }

TEST_F(ReadPlan, FourNeighbours_AreOneItemAndOneRun) {
  use_tags({word_array(), make_tag("X", 16)});
  EXPECT_EQ(classify({{0, 0}, {0, 1}, {0, 2}, {0, 3}, {1}}), "");
  EXPECT_EQ(items(), (Names{"D", "X"}));
  EXPECT_EQ(runs(5), (Numbers{4, 1, 1, 1, 1}));
  EXPECT_EQ(plc::reg_interact_num, 2U);
  EXPECT_EQ(plc::reg_init_num, 4U);
}

TEST_F(ReadPlan, SlotsBehindTheGivenOnes_AreNoNeighbours) {
  use_tags({word_array()});
  classify({{0, 0}, {0, 1}, {0, 2}});
  for (auto& slot : plc::OMRON_TEMP) slot.run = 1;
  Reg_Classify_Sort(&loaded_table(), 2);
  EXPECT_EQ(runs(3), (Numbers{2, 1, 1}));
  EXPECT_EQ(plc::reg_interact_num, 1U);
}

// Only the items of this classification are known ones.
TEST_F(ReadPlan, ItemOfAnEarlierClassification_IsMadeAnew) {
  use_tags({word_array()});
  classify({{0, 7}});
  EXPECT_EQ(plc::INIT_TAG[0].element, 7);
  plc::OMRON_TEMP[0] = {};
  plc::OMRON_TEMP[0].element = 9;
  plc::OMRON_TEMP[0].run = 1;
  Reg_Classify_Sort(&loaded_table(), 1);
  EXPECT_EQ(plc::INIT_TAG[0].element, 9);
}

TEST_F(ReadPlan, SixtyNeighbours_MakeOneItemAndTwoRuns) {
  use_tags({word_array()});
  classify([] {
    std::vector<BatchElement> slots;
    for (uint32_t i = 0; i < 60; ++i) slots.push_back({0, i});
    return slots;
  }());
  EXPECT_EQ(items(), (Names{"D"}));
  EXPECT_EQ(plc::OMRON_TEMP[0].run, 50);
  EXPECT_EQ(plc::OMRON_TEMP[50].run, 10);
  EXPECT_EQ(plc::reg_interact_num, 60U - 49U - 9U);
}

TEST_F(ReadPlan, GapInTheElements_EndsTheRun) {
  use_tags({word_array()});
  classify({{0, 0}, {0, 2}, {0, 3}});
  EXPECT_EQ(items(), (Names{"D"}));
  EXPECT_EQ(runs(3), (Numbers{1, 2, 1}));
  EXPECT_EQ(plc::reg_interact_num, 2U);
}

TEST_F(ReadPlan, TwoDimensionalBit_IsNamedQuotientFirst_D14) {
  const TagEntry tag = with_ranges(make_bit("B", kMr), {0, 3}, {0, 7});
  EXPECT_EQ(bit_item(tag, 10), "B[1,2]");
  EXPECT_EQ(bit_item(tag, 31), "B[3,7]");
  EXPECT_EQ(bit_item(tag, 32), kOutOfRange);
  EXPECT_EQ(bit_item(tag, 40), kOutOfRange);
}

TEST_F(ReadPlan, TwoDimensionalBit_AddsTheLowerBoundsOfItsOwnRanges_D14) {
  const TagEntry tag = with_ranges(make_bit("B", kMr), {10, 12}, {3, 6});
  EXPECT_EQ(bit_item(tag, 0), "B[10,3]");
  EXPECT_EQ(bit_item(tag, 7), "B[11,6]");
  EXPECT_EQ(bit_item(tag, 11), "B[12,6]");
  EXPECT_EQ(bit_item(tag, 12), kOutOfRange);
}

TEST_F(ReadPlan, ThreeDimensionalBit_IsNamedFromTheOutermostRange_D14) {
  const TagEntry tag = with_ranges(make_bit("B", kMr), {20, 21}, {10, 12}, {3, 6});
  EXPECT_EQ(bit_item(tag, 0), "B[20,10,3]");
  EXPECT_EQ(bit_item(tag, 6), "B[20,11,5]");
  EXPECT_EQ(bit_item(tag, 23), "B[21,12,6]");
  EXPECT_EQ(bit_item(tag, 24), kOutOfRange);
}

TEST_F(ReadPlan, OneDimensionalBit_HasItsBareOffset) {
  const TagEntry tag = with_ranges(make_bit("B", kMr), {4, 9});
  EXPECT_EQ(bit_item(tag, 0), "B[0]");
  EXPECT_EQ(bit_item(tag, 9), "B[9]");
  EXPECT_EQ(bit_item(tag, 10), kOutOfRange);
}

TEST_F(ReadPlan, BitOfAnotherShape_IsNotTestedAgainstItsBound) {
  TagEntry tag = make_bit("B", kMr);
  tag.dim1_high = 1;
  EXPECT_EQ(bit_item(tag, 60000), "B[60000]");
}

TEST_F(ReadPlan, ZeroExtentOfABit_EndsThePassBehindItsLine) {
  EXPECT_EQ(bit_item(with_ranges(make_bit("B", kMr), {0, 3}, {5, 4}), 0), kOutOfRange);
  EXPECT_EQ(bit_item(with_ranges(make_bit("B", kMr), {0, 1}, {5, 4}, {0, 3}), 0), kOutOfRange);
}

TEST_F(ReadPlan, EveryBitOfAnArray_IsAnItemOfItsOwn) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 15})});
  classify({{0, 3}, {0, 4}, {0, 5}});
  EXPECT_EQ(items(), (Names{"B[3]", "B[4]", "B[5]"}));
  EXPECT_EQ(runs(3), (Numbers{1, 1, 1}));
  EXPECT_EQ(plc::reg_interact_num, 3U);
}

TEST_F(ReadPlan, PlainVariables_AreItemsEvenWhenRepeated) {
  use_tags({make_tag("X", 16), make_bit("Y", kMr)});
  classify({{0}, {0}, {1}, {0}});
  EXPECT_EQ(items(), (Names{"X", "X", "Y", "X"}));
}

TEST_F(ReadPlan, EqualNeighbours_LowerTheFirstCounterByOneAndAreNotMerged) {
  use_tags({word_array()});
  classify({{0, 4}, {0, 4}, {0, 4}});
  EXPECT_EQ(plc::reg_init_num, 2U);
  EXPECT_EQ(plc::reg_interact_num, 3U);
  EXPECT_EQ(runs(3), (Numbers{1, 1, 1}));
  EXPECT_EQ(items(), (Names{"D"}));
}

TEST_F(ReadPlan, DifferentNeighbours_LeaveTheFirstCounter) {
  use_tags({word_array(), make_tag("X", 16)});
  classify({{0, 0}, {1}, {0, 1}});
  EXPECT_EQ(plc::reg_init_num, 3U);
  EXPECT_EQ(items(), (Names{"D", "X"}));
}

TEST_F(ReadPlan, RunHeadOfZeroWithNeighbours_AdvancesByTheMergedSlots) {
  use_tags({word_array()});
  classify({{0, 0, 0}, {0, 1}, {0, 2}, {0, 7}});
  // The head holds 2, so the pass goes on with slot 2, which is a head of its own.
  EXPECT_EQ(runs(4), (Numbers{2, 1, 1, 1}));
  EXPECT_EQ(plc::reg_interact_num, 2U);
  EXPECT_EQ(items(), (Names{"D"}));
}

TEST_F(ReadPlan, RunHeadOfZeroAlone_EndsThePassBehindItsItem) {
  use_tags({word_array(), make_tag("X", 16)});
  EXPECT_EQ(classify({{0, 5, 0}, {1}}), "");
  EXPECT_EQ(items(), (Names{"D"}));
}

TEST_F(ReadPlan, PlainVariableAndBitOfCountZero_DoNotEndThePass) {
  use_tags({make_tag("X", 16), with_ranges(make_bit("B", kMr), {0, 15})});
  classify({{0, 0, 0}, {1, 2, 0}, {0}});
  EXPECT_EQ(items(), (Names{"X", "B[2]", "X"}));
}

TEST_F(ReadPlan, RunOfFiftyOrMore_TakesNoFurtherSlot) {
  use_tags({word_array()});
  for (const uint16_t count : {uint16_t{50}, uint16_t{51}, uint16_t{60000}}) {
    classify({{0, 0, count}, {0, 1}});
    EXPECT_EQ(plc::OMRON_TEMP[0].run, count);
    EXPECT_EQ(plc::reg_interact_num, 2U);
  }
  classify({{0, 0, 49}, {0, 1}, {0, 2}});
  EXPECT_EQ(plc::OMRON_TEMP[0].run, 50);
  EXPECT_EQ(plc::reg_interact_num, 2U);
}

TEST_F(ReadPlan, RunOfLargerCounts_SkipsAsManySlots) {
  use_tags({word_array(), make_tag("X", 16), make_tag("Y", 16)});
  classify({{0, 0, 2}, {0, 1}, {1}, {2}});
  EXPECT_EQ(runs(4), (Numbers{3, 1, 1, 1}));
  EXPECT_EQ(items(), (Names{"D", "Y"}));  // slot 2 is passed over
}

TEST_F(ReadPlan, Strings_AreMergedAndNamedOnce) {
  use_tags({make_string("S", 20)});
  classify({{0, 3}, {0, 4}, {0, 9}});
  EXPECT_EQ(items(), (Names{"S"}));
  EXPECT_EQ(runs(3), (Numbers{2, 1, 1}));
}

TEST_F(ReadPlan, Items_CarryIdAndElementOfTheirHead) {
  use_tags({make_tag("X", 16), word_array(), with_ranges(make_bit("B", kMr), {0, 15})});
  classify({{1, 7}, {1, 8}, {2, 5}, {0, 3}});
  EXPECT_EQ(plc::INIT_TAG[0].reg_id, 1U);
  EXPECT_EQ(plc::INIT_TAG[0].element, 7U);
  EXPECT_EQ(plc::INIT_TAG[1].reg_id, 2U);
  EXPECT_EQ(plc::INIT_TAG[1].element, 5U);
  EXPECT_EQ(plc::INIT_TAG[2].reg_id, 0U);
  EXPECT_EQ(plc::INIT_TAG[2].element, 3U);
}

TEST_F(ReadPlan, PercentSigns_ArePlainText) {
  use_tags({make_tag("50%d%s%n", 16), with_ranges(make_bit("%x", kMr), {0, 15})});
  classify({{0}, {1, 5}});
  EXPECT_EQ(items(), (Names{"50%d%s%n", "%x[5]"}));
}

TEST_F(ReadPlan, IndexedIdOutsideItsGroup_EndsThePassBehindItsLine) {
  std::vector<TagEntry> group(2, make_tag("I", 16));
  group[0].tag_id = 0x40000;
  group[1].tag_id = 0x40010;
  use_tags({make_tag("X", 16)}, group);
  EXPECT_EQ(classify({{0}, {0x40002}, {0}}), kOutOfRange);  // found before any item is made
  EXPECT_EQ(items(), (Names{}));
  EXPECT_EQ(plc::reg_init_num, 3U);
  EXPECT_EQ(plc::reg_interact_num, 3U);
  EXPECT_EQ(classify({{0}, {0x40002}}), kOutOfRange);  // the last slot is found by the main pass
  EXPECT_EQ(items(), (Names{"X"}));
  EXPECT_EQ(classify({{0}, {0}, {0x40002}, {0}}), kOutOfRange);  // equal neighbours end the first look
  EXPECT_EQ(items(), (Names{"X", "X"}));
}

TEST_F(ReadPlan, OutOfRangeBit_KeepsTheItemsMadeSoFar) {
  use_tags({make_tag("X", 16), with_ranges(make_bit("B", kMr), {0, 15})});
  EXPECT_EQ(classify({{0}, {1, 3}, {1, 16}, {0}}), kOutOfRange);
  EXPECT_EQ(items(), (Names{"X", "B[3]"}));
}

TEST_F(ReadPlan, PlainIdWithoutARecord_EndsThePassWithoutALine) {
  use_tags({make_tag("X", 16)});
  EXPECT_EQ(classify({{0}, {1}, {0}}), "");
  EXPECT_EQ(items(), (Names{"X"}));
}

TEST_F(ReadPlan, NoSlots_ClearBothCounters) {
  use_tags({make_tag("X", 16)});
  plc::reg_init_num = 7;
  plc::reg_interact_num = 7;
  EXPECT_EQ(classify({}), "");
  EXPECT_EQ(plc::reg_init_num, 0U);
  EXPECT_EQ(plc::reg_interact_num, 0U);
}

TEST_F(ReadPlan, OneSlot_IsNotLookedAhead) {
  use_tags({word_array()});
  classify({{0, 5}});
  EXPECT_EQ(plc::reg_init_num, 1U);
  EXPECT_EQ(items(), (Names{"D"}));
}

TEST_F(ReadPlan, LongestNames_FitTheirItems) {
  TagEntry tag = with_ranges(make_bit("", kMr), {0, 1}, {0, 1}, {0, 1});
  memset(tag.name, 'n', sizeof tag.name - 1);
  tag.dim1_low = tag.dim2_low = tag.dim3_low = INT32_MIN;
  tag.dim1_high = tag.dim2_high = tag.dim3_high = INT32_MIN + 1;
  EXPECT_EQ(bit_item(tag, 0), std::string(255, 'n') + "[-2147483648,-2147483648,-2147483648]");
}

}  // namespace
}  // namespace plc_test
