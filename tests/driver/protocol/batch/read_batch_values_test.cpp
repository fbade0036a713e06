// The values of a batch read: where bits are looked for, how values land in the elements, replies that end early.
#include "plc_driver/driver_state.h"
#include "tests/driver/protocol/batch/batch_fixture.h"

namespace plc_test {
namespace {

using Numbers = std::vector<uint32_t>;

class ReadBatchValues : public BatchTest {
 protected:
  // Reads one bit twice in a batch of two elements; returns the first reference of the value request as text.
  std::string bit_reference(const TagEntry& tag, uint8_t bit_number, std::string_view value_hex) {
    use_tags({tag});
    peer_.forget();
    answer_frame(4, value_hex, bit_number);
    EXPECT_EQ(read({{0}, {0}}), 0U);
    const Bytes& request = peer_.requests().at(1);
    return to_hex(Bytes(request.begin() + 18, request.begin() + 26));
  }
};

TagEntry array_of(uint8_t width) { return with_ranges(make_tag("D", width), {0, 99}); }

TEST_F(ReadBatchValues, DoubleWords_HaveTheirLowWordFirst) {
  use_tags({array_of(32)});
  answer_frame(2, "33 44 11 22 77 88 55 66");
  EXPECT_EQ(read(consecutive(0, 0, 2)), 0U);
  EXPECT_EQ(values(), (Numbers{0x11223344, 0x55667788}));
  EXPECT_EQ(peer_.requests().at(1)[21], 2);  // size code
}

TEST_F(ReadBatchValues, QuadWord_FillsTwoElements) {
  use_tags({make_tag("D", 64), make_tag("X", 16)});
  answer_frame(2, "77 88 55 66 33 44 11 22 12 34");
  EXPECT_EQ(read({{0}, {1}}), 0U);
  // The second slot stores from its own element on, over the high half.
  EXPECT_EQ(values(), (Numbers{0x55667788, 0x1234}));
  EXPECT_EQ(peer_.requests().at(1)[21], 4);
}

TEST_F(ReadBatchValues, QuadWordOfTheLastElement_StoresItsLowHalfAlone) {
  use_tags({make_tag("X", 16), make_tag("D", 64)});
  answer_frame(2, "12 34 77 88 55 66 33 44 11 22");
  EXPECT_EQ(read({{0}, {1}}), 0U);
  EXPECT_EQ(values(), (Numbers{0x1234, 0x55667788}));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(ReadBatchValues, QuadWordRun_StoresTwoElementsForEachUpToTheLast) {
  use_tags({array_of(64)});
  answer_frame(3, "00 01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00 05 00 00 00 06 00 00");
  EXPECT_EQ(read(consecutive(0, 0, 3)), 0U);
  EXPECT_EQ(values(), (Numbers{1, 2, 3}));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(ReadBatchValues, QuadWordsAndWords_EachSlotStoresFromItsOwnElementOn) {
  use_tags({array_of(64), make_tag("X", 16)});
  peer_.answer(resolve_many(4));
  peer_.answer(reply_exactly(value_reply(from_hex("00 01 00 00 00 02 00 00 12 34 00 05 00 00 00 06 00 00"))));
  EXPECT_EQ(read({{0, 0}, {1}, {0, 9}, {1}}), 2U);  // the last word is missing
  EXPECT_EQ(values(), (Numbers{1, 0x1234, 5, 0}));
}

TEST_F(ReadBatchValues, EightBits_StoreNothingAndConsumeNothing) {
  use_tags({make_tag("D", 8), make_tag("X", 16)});
  answer_frame(2, "12 34 56 78");
  EXPECT_EQ(read({{0}, {1}}), 0U);
  EXPECT_EQ(values(), (Numbers{kUntouched, 0x1234}));
  EXPECT_EQ(peer_.requests().at(1)[21], 8);
}

TEST_F(ReadBatchValues, OtherWidths_StoreNothing) {
  use_tags({make_tag("D", 4), make_tag("X", 16)});
  answer_frame(2, "12 34 56 78");
  EXPECT_EQ(read({{0}, {1}}), 0U);
  EXPECT_EQ(values(), (Numbers{kUntouched, 0x1234}));
}

TEST_F(ReadBatchValues, PlainVariableWithACount_FillsFollowingElementsUpToTheLast) {
  use_tags({make_tag("X", 16)});
  answer_frame(4, "00 01 00 02 00 03 00 04");
  EXPECT_EQ(read({{0, 0, 4}, {0}, {0}}), 0U);
  EXPECT_EQ(values(), (Numbers{1, 2, 3}));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(ReadBatchValues, BitOfAMember_IsWhereTheReplySays_D36) {
  for (const uint8_t device : {kMr, kLr, kDm, kEm, kNoDevice}) {
    for (const uint8_t kind : {uint8_t{2}, uint8_t{3}}) {
      TagEntry tag = make_bit("A.B", device);
      tag.name_kind = kind;
      EXPECT_EQ(bit_reference(tag, 9, "02 00 00 00 FD FF 00 00"), "00 80 00 01 00 00 D4 E9");
      EXPECT_EQ(values(), (Numbers{1, 0}));
    }
  }
}

TEST_F(ReadBatchValues, OtherBits_AreTakenOutOfTheirReference_D36) {
  TagEntry em = with_ranges(make_bit("B", kEm), {0, 15});
  std::vector<TagEntry> tags = {make_bit("B", kMr), make_bit("B", kEm)};
  if (expects_contract()) tags.push_back(em);
  for (const TagEntry& tag : tags) {
    EXPECT_EQ(bit_reference(tag, 9, "02 00 00 00 FD FF 00 00"), "00 80 00 01 00 00 D4 E0");
    EXPECT_EQ(values(), (Numbers{1, 0}));
  }
}

TEST_F(ReadBatchValues, ReportedBitNumber_IsTakenModulo16) {
  TagEntry tag = make_bit("A.B", kDm);
  tag.name_kind = 2;
  use_tags({tag});
  peer_.answer([] {
    Bytes reply = resolve_many(4);
    reply[30] = 0xF3;
    reply[30 + 48] = 0x10;
    return reply;
  }());
  peer_.answer(value_reply("00 08 00 00 00 01 00 00"));
  EXPECT_EQ(read({{0}, {0}}), 0U);
  EXPECT_EQ(values(), (Numbers{1, 1}));
}

TEST_F(ReadBatchValues, BitsOfOneSlot_ComeFromOneWordAndCollectInItsFirstElement) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99})});
  answer_frame(4, "0B 40 FF FF 00 20 FF FF", 6);
  // Bits 6, 7, 8, 9 of 0B40 are 1, 0, 1, 1; the next slot's element receives its own value last.
  EXPECT_EQ(read({{0, 0, 4}, {0, 20}}), 0U);
  EXPECT_EQ(values(), (Numbers{0xD, 0}));
}

TEST_F(ReadBatchValues, FurtherBitsOfASlot_GoToTheFollowingElements) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99}), make_tag("D", 8)});
  answer_frame(4, "00 0D 00 00", 0);
  EXPECT_EQ(read({{0, 0, 3}, {1}, {1}}), 0U);
  EXPECT_EQ(values(), (Numbers{5, 0, 1}));
}

TEST_F(ReadBatchValues, BitPositionsOf16AndMore_ReadAsZero) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99}), make_tag("D", 8)});
  answer_frame(5, "FF FF FF FF", 14);
  EXPECT_EQ(read({{0, 0, 4}, {1}, {1}, {1}}), 0U);
  EXPECT_EQ(values(), (Numbers{3, 1, 0, 0}));
}

TEST_F(ReadBatchValues, BitRunBeyondItsWord_CollectsTheBitsOfTheWord) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99})});
  answer_frame(2, "FF FF FF FF", 0);
  answer_frame(2, "00 01 00 00", 0);
  EXPECT_EQ(read({{0, 0, 40}, {0, 40}}), 0U);
  EXPECT_EQ(values(), (Numbers{0xFFFF, 1}));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(ReadBatchValues, BitsAlone_TakeAWordEachAndCollectInTheOneElement) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99})});
  answer_frame(3, "00 08 FF F7 00 08", 3);
  EXPECT_EQ(read({{0, 5, 3}}), 0U);
  EXPECT_EQ(values(), (Numbers{5}));
  EXPECT_TRUE(batch_.guards_intact());
}

TEST_F(ReadBatchValues, ThirtyFourBitsAlone_StayWithinTheValue) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99})});
  answer_frame(34, Bytes(68, 0xFF), 7);
  EXPECT_EQ(read({{0, 5, 34}}), 0U);
  EXPECT_EQ(values(), (Numbers{0xFFFFFFFF}));
}

TEST_F(ReadBatchValues, BitsAlone_HaveAPositionEach) {
  use_tags({with_ranges(make_bit("B", kMr), {0, 99})});
  peer_.answer([] {
    Bytes reply = resolve_many(2, 3);
    reply[24 + 25] = 0xE5;
    return reply;
  }());
  peer_.answer(value_reply("00 08 00 20"));
  EXPECT_EQ(read({{0, 5, 2}}), 0U);
  EXPECT_EQ(values(), (Numbers{3}));
}

TEST_F(ReadBatchValues, NamesWithGroups_AreWalkedByTheirLengths) {
  use_tags({array_of(16)});
  Bytes resolved(24 + 8 + 24 + 41);
  resolved[21] = 0x91;
  resolved[40] = 2;  // two groups of four bytes
  resolved[32 + 21] = 0x92;
  resolved[32 + 40] = 0;
  resolved[56 + 21] = 0x93;
  peer_.answer(resolved);
  peer_.answer(value_reply("00 01 00 02 00 03"));
  EXPECT_EQ(read(consecutive(0, 0, 3)), 0U);
  EXPECT_EQ(peer_.requests().at(1)[19], 0x91);
  EXPECT_EQ(peer_.requests().at(1)[27], 0x92);
  EXPECT_EQ(peer_.requests().at(1)[35], 0x93);
}

TEST_F(ReadBatchValues, SizeCode_IsThatOfTheRunForTypesWithoutAWidth) {
  use_tags({make_string("S", 80), make_tag("T", 0)});
  answer_frame(5, "41 42 43 44 45 46 47 48");
  EXPECT_EQ(read({{0, 3, 3}, {0, 9}, {1}, {1}}), 0U);
  EXPECT_EQ(peer_.requests().at(1)[21], 3);
}

TEST_F(ReadBatchValues, EveryLengthOfTheValueReply_StoresTheSlotsItReachesAndReturnsTwo) {
  use_tags({make_tag("X", 16), make_tag("Y", 32), make_tag("Z", 16)});
  const Bytes whole = value_reply("11 12 23 24 21 22 31 32");
  for (size_t length = 0; length <= whole.size(); ++length) {
    peer_.forget();
    Bytes resolved = resolve_many(3);
    std::fill(resolved.begin() + 14, resolved.begin() + 21, uint8_t{0xEE});  // what shows behind a short reply
    peer_.answer(resolved);
    peer_.answer(reply_exactly(prefix_of(whole, length)));
    EXPECT_EQ(read({{0}, {1}, {2}}), length < 22 ? 2U : 0U) << length;
    // A slot that the reply ends in is stored before the call returns; what it lacks is the resolve reply's.
    EXPECT_EQ(values()[0] != kUntouched, length >= 14) << length;
    EXPECT_EQ(values()[1] != kUntouched, length >= 16) << length;
    EXPECT_EQ(values()[2] != kUntouched, length >= 20) << length;
    EXPECT_EQ(values()[0], length < 14 ? kUntouched : length == 14 ? 0xEEEEU : length == 15 ? 0x11EEU : 0x1112U);
    EXPECT_EQ(plc::init, 1U);
  }
}

TEST_F(ReadBatchValues, ShortReplyOfTheSecondFrame_KeepsTheFirstFramesValues) {
  use_tags({make_tag("X", 16)});
  answer_frame(18, Bytes(36, 0x22));
  peer_.answer(resolve_many(18));
  peer_.answer(reply_exactly(value_reply(Bytes(34, 0x33))));
  EXPECT_EQ(read(repeated(0, 36)), 2U);
  EXPECT_EQ(values()[17], 0x2222U);
  EXPECT_EQ(values()[34], by_build(0x3333U, kUntouched));
}

TEST_F(ReadBatchValues, ReplyBuffer_IsOneForTheWholeCall) {
  use_tags({make_tag("X", 16)});
  Bytes first(36, 0x22);
  first[40 - 14] = 0;  // where the second reply would say how far its next name is
  answer_frame(18, first);
  peer_.answer(reply_exactly(prefix_of(resolve_many(18), 25)));
  peer_.answer(value_reply(Bytes(36, 0x33)));
  EXPECT_EQ(read(repeated(0, 36)), 0U);
  // The second frame's resolve reply holds one handle; the next one shows the first frame's value reply.
  EXPECT_EQ(peer_.requests().at(3)[27], 0x22);
}

}  // namespace
}  // namespace plc_test
