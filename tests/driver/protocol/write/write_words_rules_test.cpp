// What all word writes share: counts, limits, subscripts, replies and failures.
#include <cerrno>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/writes/write_functions.h"
#include "plc_driver/tags/element_name.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class WriteWordRules : public ProtocolTest {
 protected:
  // A write of count elements of an array, with the data that its elements take.
  int32_t write_array(TagEntry tag, uint32_t index, uint32_t count, size_t data_bytes = 0) {
    RegValue* values = value(Bytes(data_bytes, 0x5A), count, data_bytes);
    switch (tag.bit_width) {
      case 16:
        return ev_plc_write_array_words(element(index), values, &conn_, &tag);
      case 32:
        return ev_plc_write_array_dwords(element(index), values, &conn_, &tag);
      default:
        return ev_plc_write_array_4words(element(index), values, &conn_, &tag);
    }
  }

  // Nothing was sent, and the connection and the sequence number are as they were.
  void expect_untouched() {
    EXPECT_EQ(sent(), frames({}));
    EXPECT_EQ(plc::sid, 0);
    EXPECT_EQ(plc::init, 1U);
  }
};

TagEntry array_tag(uint8_t bit_width) { return with_ranges(make_tag("D", bit_width), {0, 999}); }

TEST_F(WriteWordRules, ArrayOfThree_NamesEachAndAnnouncesThreeUnits) {
  answer_writes();
  TagEntry tag = array_tag(16);
  EXPECT_EQ(ev_plc_write_array_words(element(5), value("01 00 02 00 03 00", 3), &conn_, &tag), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 2C FF FF FF D3 00 00 0C 28 00 01 00 00 00 03"
                            "00 05 00 44 00 5B 00 23 00 35 00 5D 00 05 00 44 00 5B 00 23 00 36 00 5D"
                            "00 05 00 44 00 5B 00 23 00 37 00 5D",
                            "00 00 00 12 FF FF FF ED 00 01 1E 01 00 A1 00 00 00 03 B2 C3 D4 E5 00 01 00 02 00 03"}));
}

TEST_F(WriteWordRules, TwoDimensions_AddNoLowerBound_D13) {
  answer_writes(2);
  TagEntry tag = with_ranges(make_tag("D", 16), {100, 108}, {3, 9});
  EXPECT_EQ(ev_plc_write_array2_words(element(23), value("01 00", 1), &conn_, 9, &tag), 0);
  EXPECT_EQ(ev_plc_write_array2_words(element(0), value("01 00", 1), &conn_, 9, &tag), 0);
  EXPECT_EQ(sent_names(), (std::vector<std::string>{"D[#2,#3]", "D[#0,#0]"}));
}

TEST_F(WriteWordRules, CountZeroGlobal_SendsFramesWithoutNamesAndValues) {
  answer_writes();
  EXPECT_EQ(write_array(array_tag(16), 5, 0), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 08 FF FF FF F7 00 00 0C 28 00 01 00 00 00 00",
                            "00 00 00 0C FF FF FF F3 00 01 1E 01 00 A1 00 00 00 00 B2 C3 D4 E5"}));
}

TEST_F(WriteWordRules, CountZeroLocal_SendsFramesWithoutNamesAndValues) {
  answer_writes();
  TagEntry tag = local(array_tag(16));
  EXPECT_EQ(ev_plc_write_array_words_local(element(5), value("", 0), &conn_, &tag, 1, kMainNumber), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 0E FF FF FF F1 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 00",
                            "00 00 00 0C FF FF FF F3 00 01 1E 01 00 A1 00 00 00 00 B2 C3 D4 E5"}));
}

TEST_F(WriteWordRules, OddQuadWordCount_AnnouncesUnitsThatAreNotSent_D23) {
  answer_writes();
  TagEntry tag = array_tag(64);
  EXPECT_EQ(ev_plc_write_array_4words(element(6), value("88 77 66 55 44 33 22 11 08 07 06 05", 3), &conn_, &tag), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 44 00 5B 00 23 00 33 00 5D",
                            "00 00 00 14 FF FF FF EB 00 01 1E 01 00 A1 00 00 00 06 B2 C3 D4 E5"
                            "77 88 55 66 33 44 11 22"}));
}

TEST_F(WriteWordRules, QuadWordCountOfOne_WritesNothingYetAnnouncesTwoUnits_D23) {
  answer_writes();
  EXPECT_EQ(write_array(array_tag(64), 6, 1), 0);
  EXPECT_EQ(sent(), frames({"00 00 00 08 FF FF FF F7 00 00 0C 28 00 01 00 00 00 00",
                            "00 00 00 0C FF FF FF F3 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5"}));
}

TEST_F(WriteWordRules, ScalarWord_WantsThirteenBytesOfAcknowledgment_D26) {
  TagEntry tag = make_tag("D", 16);
  for (size_t length = 0; length <= 14; ++length) {
    peer_.answer(resolve_reply());
    peer_.answer(reply_exactly(prefix_of(acknowledgment(), length)));
    EXPECT_EQ(ev_plc_write_words(element(0), value("34 12", 1), &conn_, &tag), length < 13 ? 3 : 0) << length;
    EXPECT_EQ(plc::init, 1U);
  }
}

TEST_F(WriteWordRules, LocalScalarWord_WantsThirteenBytesOfAcknowledgment_D26) {
  TagEntry tag = local(make_tag("D", 16));
  for (size_t length = 0; length <= 14; ++length) {
    peer_.answer(resolve_reply());
    peer_.answer(reply_exactly(prefix_of(acknowledgment(), length)));
    EXPECT_EQ(ev_plc_write_words_local(element(0), value("34 12", 1), &conn_, &tag, 1, 7), length < 13 ? 3 : 0);
  }
}

TEST_F(WriteWordRules, EveryOtherWordWrite_IsContentWithOneByte_D26) {
  for (const size_t length : {size_t{0}, size_t{1}}) {
    const int32_t expected = length == 0 ? 3 : 0;
    const auto answer = [&] {
      peer_.answer(resolve_reply());
      peer_.answer(reply_exactly(prefix_of(acknowledgment(), length)));
    };
    TagEntry dword = make_tag("D", 32);
    answer();
    EXPECT_EQ(ev_plc_write_dwords(element(0), value("34 12 00 00", 1), &conn_, &dword), expected);
    TagEntry quad = make_tag("D", 64);
    answer();
    EXPECT_EQ(ev_plc_write_4words_local(element(0), value("01 02 03 04 05 06 07 08", 1), &conn_, &quad, 1, 7),
              expected);
    answer();
    EXPECT_EQ(write_array(array_tag(16), 0, 1, 2), expected);
    answer();
    EXPECT_EQ(ev_plc_write_array2_words(element(0), value("34 12", 1), &conn_, 9, &dword), expected);
    answer();
    EXPECT_EQ(ev_plc_write_array3_words_local(element(0), value("34 12", 1), &conn_,
                                              with_ranges(dword, {0, 1}, {0, 1}, {0, 1})),
              expected);
    EXPECT_EQ(plc::init, 1U);
  }
}

TEST_F(WriteWordRules, LargestGlobalRequest_FillsTheBufferToItsLastByte) {
  answer_writes();
  EXPECT_EQ(write_array(array_tag(16), 9, 72, 144), 0);
  ASSERT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(peer_.requests()[0].size(), 1024U);
  EXPECT_EQ(to_hex(prefix_of(peer_.requests()[0], 18)), "00 00 03 F6 FF FF FC 09 00 00 0C 28 00 01 00 00 00 48");
  EXPECT_EQ(sent_names().size(), 72U);
  EXPECT_EQ(sent_names().back(), "D[#80]");
  EXPECT_EQ(peer_.requests()[1].size(), 22U + 144U);
}

TEST_F(WriteWordRules, OneNameTooMany_FailsWithNothingSent) {
  EXPECT_EQ(write_array(array_tag(16), 9, 73, 146), 3);
  expect_untouched();
}

TEST_F(WriteWordRules, LargestLocalRequest_FillsTheBufferToItsLastByte) {
  answer_writes();
  TagEntry tag = local(array_tag(16));
  EXPECT_EQ(ev_plc_write_array_words_local(element(6), value(Bytes(144), 72, 144), &conn_, &tag, 1, 7), 0);
  ASSERT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(peer_.requests()[0].size(), 1024U);
}

TEST_F(WriteWordRules, OneLocalNameTooMany_FailsWithNothingSent) {
  TagEntry tag = local(array_tag(16));
  EXPECT_EQ(ev_plc_write_array_words_local(element(6), value(Bytes(146), 73, 146), &conn_, &tag, 1, 7), 3);
  expect_untouched();
}

TEST_F(WriteWordRules, QuadWordsOfMostUnits_AreSent) {
  answer_writes();
  EXPECT_EQ(write_array(array_tag(64), 0, 127, 4 * 127), 0);  // 63 elements, 252 units
  ASSERT_EQ(peer_.requests().size(), 2U);
  EXPECT_EQ(peer_.requests()[1].size(), 22U + 504U);
  EXPECT_EQ(peer_.requests()[1][17], 254);
}

TEST_F(WriteWordRules, QuadWordsAbove255Units_FailWithNothingSent) {
  EXPECT_EQ(write_array(array_tag(64), 0, 128, 4 * 128), 3);  // 64 elements, 256 units; their names would fit
  expect_untouched();
}

TEST_F(WriteWordRules, HugeCounts_FailWithNothingSentAndNothingRead) {
  for (const uint8_t width : {uint8_t{16}, uint8_t{32}, uint8_t{64}}) {
    for (const uint32_t count : {256U, 512U, 0x10000U, 0x40000000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
      EXPECT_EQ(write_array(array_tag(width), 0, count), 3) << int{width} << ' ' << count;
    }
  }
  expect_untouched();
}

TEST_F(WriteWordRules, ZeroDivisor_FailsWithNothingSent) {
  TagEntry two = with_ranges(make_tag("D", 16), {0, 3}, {0, 9});
  EXPECT_EQ(ev_plc_write_array2_words(element(1), value("01 00", 1), &conn_, 0xFFFFFFFF, &two), 3);
  const TagEntry no_first = with_ranges(make_tag("D", 16), {0, 1}, {0, 3}, {1, 0});
  EXPECT_EQ(ev_plc_write_array3_words(element(1), value("01 00", 1), &conn_, no_first), 3);
  const TagEntry no_second = with_ranges(make_tag("D", 16), {0, 1}, {4, 3}, {0, 3});
  EXPECT_EQ(ev_plc_write_array3_words_local(element(1), value("01 00", 1), &conn_, no_second), 3);
  expect_untouched();
}

TEST_F(WriteWordRules, ZeroDivisorWithCountZero_IsNotDividedBy) {
  answer_writes();
  TagEntry two = with_ranges(make_tag("D", 16), {0, 3}, {0, 9});
  EXPECT_EQ(ev_plc_write_array2_words(element(1), value("", 0), &conn_, 0xFFFFFFFF, &two), 0);
  EXPECT_EQ(peer_.requests().size(), 2U);
}

TEST_F(WriteWordRules, ThreeDimensionsWithNegativeExtents_TruncateTowardZero) {
  answer_writes(2);
  // D1 = 0 - 4 + 1 = -3, D2 = 0 - 3 + 1 = -2: 7 / -3 = -2 rest 1, -2 / -2 = 1 rest 0.
  const TagEntry tag = with_ranges(make_tag("D", 16), {10, 0}, {3, 0}, {4, 0});
  EXPECT_EQ(ev_plc_write_array3_words(element(7), value("01 00", 1), &conn_, tag), 0);
  // D1 = -1: 5 / -1 = -5 rest 0, -5 / -2 = 2 rest -1.
  const TagEntry other = with_ranges(make_tag("D", 16), {10, 0}, {3, 0}, {2, 0});
  EXPECT_EQ(ev_plc_write_array3_words(element(5), value("01 00", 1), &conn_, other), 0);
  EXPECT_EQ(sent_names(), (std::vector<std::string>{"D[#5,#3,#11]", "D[#4,#2,#10]"}));
}

TEST_F(WriteWordRules, SmallestIntegerDividedByMinusOne_DoesNotTrap) {
  const TagEntry tag = with_ranges(make_tag("D", 16), {0, 0}, {2, 0}, {2, 0});
  plc::Subscripts subscripts;
  EXPECT_TRUE(plc::form_word_write_subscripts(tag, PLC_ARRAY3, 0, 0x80000000U, &subscripts));
  EXPECT_EQ(subscripts.count, 3U);
  EXPECT_EQ(subscripts.value[2], 0);
}

TEST_F(WriteWordRules, EmptyResolveReply_FailsAndKeepsTheConnection) {
  peer_.answer(Bytes{});
  EXPECT_EQ(write_array(array_tag(16), 0, 1, 2), 3);
  EXPECT_EQ(peer_.requests().size(), 1U);
  EXPECT_EQ(plc::init, 1U);
  EXPECT_EQ(peer_.closes(), 0);
}

TEST_F(WriteWordRules, FailedExchanges_ClearTheConnectionFlag) {
  for (const SocketAnswer& failure : {say_nothing(), fail_receive(ECONNRESET), fail_send(EPIPE)}) {
    for (int good = 0; good < 2; ++good) {
      plc::init = 1;
      conn_.socket_fd = ScriptedSocket::kDescriptor;
      peer_.forget();
      if (good == 1) peer_.answer(resolve_reply());
      peer_.answer(failure);
      capture_output([this] { EXPECT_EQ(write_array(array_tag(32), 0, 1, 4), 3); });
      EXPECT_EQ(plc::init, 0U);
      EXPECT_EQ(peer_.unused_answers(), 0U);
    }
  }
}

TEST_F(WriteWordRules, ResolveReplyCutAtEveryByte_LeavesTheRestOfTheHandleZero) {
  const Bytes whole = resolve_reply();
  for (size_t length = 1; length <= whole.size(); ++length) {
    peer_.forget();
    peer_.answer(reply_exactly(prefix_of(whole, length)));
    peer_.answer(acknowledgment());
    EXPECT_EQ(write_array(array_tag(16), 0, 1, 2), 0);
    ASSERT_EQ(peer_.requests().size(), 2U);
    const Bytes& request = peer_.requests()[1];
    EXPECT_EQ(request[13], length > 21 ? 0xA1 : 0) << length;
    EXPECT_EQ(request[18], length > 22 ? 0xB2 : 0) << length;
    EXPECT_EQ(request[19], length > 23 ? 0xC3 : 0) << length;
    EXPECT_EQ(request[20], length > 24 ? 0xD4 : 0) << length;
    EXPECT_EQ(request[21], length > 25 ? 0xE5 : 0) << length;
  }
}

TEST_F(WriteWordRules, SeveralNames_TheFirstHandleIsWritten) {
  const Bytes second = from_hex("77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77 77");
  peer_.answer(resolve_reply() + second);
  peer_.answer(acknowledgment());
  EXPECT_EQ(write_array(array_tag(16), 0, 2, 4), 0);
  EXPECT_EQ(to_hex(peer_.requests().at(1)),
            "00 00 00 10 FF FF FF EF 00 01 1E 01 00 A1 00 00 00 02 B2 C3 D4 E5 5A 5A 5A 5A");
}

TEST_F(WriteWordRules, OneWrite_TakesEightSystemCalls) {
  answer_writes();
  TagEntry tag = make_tag("D", 16);
  EXPECT_EQ(ev_plc_write_words(element(0), value("34 12", 1), &conn_, &tag), 0);
  EXPECT_EQ(peer_.calls(), "select send select recv select send select recv");
}

TEST_F(WriteWordRules, StaleInput_IsDroppedBeforeEachRequest) {
  answer_writes();
  peer_.leave_stale(Bytes(40, 0x99));
  TagEntry tag = make_tag("D", 16);
  EXPECT_EQ(ev_plc_write_words(element(0), value("34 12", 1), &conn_, &tag), 0);
  const std::string drain = by_build("select recv ", "select recv select ");
  EXPECT_EQ(peer_.calls(), drain + "send select recv select send select recv");
  EXPECT_EQ(peer_.requests().at(1)[13], 0xA1);
}

TEST_F(WriteWordRules, SequenceNumbers_GoOnAndWrap) {
  answer_writes();
  plc::sid = 0xFFFF;
  EXPECT_EQ(write_array(array_tag(16), 0, 1, 2), 0);
  EXPECT_EQ(to_hex({peer_.requests().at(0)[8], peer_.requests().at(0)[9]}), "FF FF");
  EXPECT_EQ(to_hex({peer_.requests().at(1)[8], peer_.requests().at(1)[9]}), "00 00");
  EXPECT_EQ(plc::sid, 1);
}

TEST_F(WriteWordRules, HostBuffer_IsNotChangedAndMayBeUnaligned) {
  answer_writes();
  GuardedBuffer data(8, 0, 1);
  const Bytes bytes = from_hex("88 77 66 55 44 33 22 11");
  std::copy(bytes.begin(), bytes.end(), data.data());
  RegValue values = {1, data.data()};
  TagEntry tag = make_tag("D", 64);
  EXPECT_EQ(ev_plc_write_4words(element(0), &values, &conn_, &tag), 0);
  EXPECT_EQ(to_hex(data.bytes()), "88 77 66 55 44 33 22 11");
  EXPECT_TRUE(data.guards_intact());
  EXPECT_EQ(values.count, 1U);
}

}  // namespace
}  // namespace plc_test
