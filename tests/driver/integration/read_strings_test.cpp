// Tests of single reads of strings: position and length, the copied text, the records of string reads.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "plc_driver/driver_state.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc::string_id;
using plc::StringInfo;
using plc_test::answer;
using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::PeerStep;
using plc_test::resolve_reply;
using plc_test::to_hex;
using plc_test::value_reply;
using plc_test::operator+;
using testing::EndsWith;

// A text that fills this many units.
Bytes unterminated(size_t units) { return value_reply(Bytes(2 * units, 0x41)); }

class ReadStrings : public plc_test::DriverFixture {
 protected:
  ReadStrings() { write_tags(0, "S,STRING,,20,a,b,c,0,1\nT,STRING,,20,a,b,c,77,1\n"); }

  // Reads `length` units of string `id` from this offset into a buffer of this size, all bytes 0xEE before.
  std::string text_of(uint32_t id, uint16_t offset, uint32_t length, const Bytes& values, size_t size = 8) {
    start_connected({answer(resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}})), answer(values, form_)});
    GuardedBuffer data(size, 0xEE);
    RegRequest request = plc_test::request_for(id, offset);
    RegValue value = {length, data.data()};
    EXPECT_EQ(read(&request, &value), 0U);
    EXPECT_EQ(value.count, 1U);
    EXPECT_TRUE(data.guards_intact());
    requests_ = finish();
    return to_hex(data.bytes());
  }

  static void expect_record(uint32_t index, uint32_t reg_id, uint16_t length, uint8_t state) {
    EXPECT_EQ(StringInfo[index].reg_id, reg_id) << index;
    EXPECT_EQ(StringInfo[index].aux, 0U) << index;
    EXPECT_EQ(StringInfo[index].length, length) << index;
    EXPECT_EQ(StringInfo[index].state, state) << index;
  }

  std::vector<Bytes> requests_;
  plc_test::ReplyForm form_ = plc_test::ReplyForm::kComplete;  // of the value reply
};

constexpr size_t kRoomForUnterminated = 26;
const Bytes kTerminated = value_reply(from_hex("41 42 00"));

TEST_F(ReadStrings, WholeString_AsksForOneNameWithItsLengthAsSize) {
  EXPECT_EQ(text_of(0, 0, 10, value_reply(from_hex("41 42 43 00 99 99"))), "41 42 43 00 EE EE EE EE");
  EXPECT_EQ(to_hex(requests_[0]),
            "00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 53 00 5B 00 23 00 30 00 5D");
  EXPECT_EQ(to_hex(requests_[1]), "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 40 00 0A 11 22 33 44");
}

TEST_F(ReadStrings, Offset_IsDoubled) {
  text_of(0, 3, 10, kTerminated);
  EXPECT_THAT(to_hex(requests_[0]), EndsWith("00 05 00 53 00 5B 00 23 00 36 00 5D"));
  text_of(0, 512, 10, kTerminated);
  EXPECT_THAT(to_hex(requests_[0]), EndsWith("00 08 00 53 00 5B 00 23 00 31 00 30 00 32 00 34 00 5D"));
}

TEST_F(ReadStrings, OffsetBeyond1024Characters_AnnouncesOneNameAndCarriesNone_D22) {
  for (const uint16_t offset : {uint16_t{513}, uint16_t{0xFFFF}}) {
    text_of(0, offset, 10, kTerminated);
    EXPECT_EQ(to_hex(requests_[0]), "00 00 00 08 FF FF FF F7 00 00 0C 28 00 01 00 00 00 01");
    EXPECT_THAT(to_hex(requests_[1]), EndsWith("00 00 01 00 00 00 00 40 00 0A 11 22 33 44"));
  }
}

TEST_F(ReadStrings, Length_TravelsAsItsLowByte) {
  text_of(0, 0, 0x1234, kTerminated);
  EXPECT_THAT(to_hex(requests_[1]), EndsWith("00 40 00 34 11 22 33 44"));
  expect_record(0, 0, 0x1234, 2);
  text_of(1, 0, 0xABCD1234, kTerminated);
  expect_record(1, 1, 0x1234, 0);
}

TEST_F(ReadStrings, LengthZero_IsStillOneName) {
  form_ = plc_test::ReplyForm::kExact;
  EXPECT_EQ(text_of(0, 0, 0, kTerminated), "41 42 00 00 EE EE EE EE");
  EXPECT_THAT(to_hex(requests_[1]), EndsWith("00 40 00 00 11 22 33 44"));
}

TEST_F(ReadStrings, Bytes_AreCopiedAsTheyStand) {
  EXPECT_EQ(text_of(0, 0, 10, value_reply(from_hex("C3 A9 FF 80 01 00"))), "C3 A9 FF 80 01 00 EE EE");
}

TEST_F(ReadStrings, ReplyOfExactly14Bytes_StoresNothingBeyondTheClearedBytes) {
  form_ = plc_test::ReplyForm::kExact;
  EXPECT_EQ(text_of(0, 0, 10, value_reply({})), "00 00 00 00 EE EE EE EE");
  expect_record(0, 0, 10, 0);
}

TEST_F(ReadStrings, NoTerminatorInTheReply_LeavesTheTextUnterminatedAndItsRecordRequested) {
  form_ = plc_test::ReplyForm::kExact;
  EXPECT_EQ(text_of(0, 0, 10, value_reply(from_hex("41 42 43 44 45"))), "41 42 43 44 45 EE EE EE");
  expect_record(0, 0, 10, 0);
}

TEST_F(ReadStrings, EmptyString_IsATerminatorAlone) {
  EXPECT_EQ(text_of(0, 0, 10, value_reply(from_hex("00 41 42"))), "00 00 00 00 EE EE EE EE");
  expect_record(0, 0, 10, 2);
}

TEST_F(ReadStrings, EveryPrefixOfTheValueReply_YieldsTheBytesThatCame) {
  form_ = plc_test::ReplyForm::kExact;
  const Bytes whole = value_reply(from_hex("41 42 43 44 45 00"));
  const char* const texts[] = {"00 00 00 00 EE EE EE EE", "41 00 00 00 EE EE EE EE", "41 42 00 00 EE EE EE EE",
                               "41 42 43 00 EE EE EE EE", "41 42 43 44 EE EE EE EE", "41 42 43 44 45 EE EE EE",
                               "41 42 43 44 45 00 EE EE"};
  for (size_t length = 14; length <= whole.size(); ++length) {
    EXPECT_EQ(text_of(0, 0, 10, plc_test::prefix_of(whole, length)), texts[length - 14]) << length;
  }
}

TEST_F(ReadStrings, BytesThatAnEarlierReplyLeft_AreNoText) {
  start_connected({answer(Bytes(64, 0x7A)), plc_test::answer_exactly(value_reply(from_hex("41 42")))});
  GuardedBuffer data(8, 0xEE);
  EXPECT_EQ(read_id(0, 0, 10, data.data()), 0U);
  EXPECT_EQ(to_hex(data.bytes()), "41 42 00 00 EE EE EE EE");
}

TEST_F(ReadStrings, LongestReply_FillsTheHostsBufferExactly) {
  form_ = plc_test::ReplyForm::kExact;
  const size_t kTextBytes = 1000;
  EXPECT_EQ(text_of(0, 0, 250, value_reply(Bytes(kTextBytes, 0x41)), kTextBytes).substr(0, 11), "41 41 41 41");
}

TEST_F(ReadStrings, ReadAtOffsetZero_AddsARecordACallUntilAValueIsReceived) {
  text_of(0, 0, 10, unterminated(10), kRoomForUnterminated);
  EXPECT_EQ(string_id, 1U);
  expect_record(0, 0, 10, 0);
  text_of(0, 0, 11, unterminated(11), kRoomForUnterminated);
  EXPECT_EQ(string_id, 2U);
  expect_record(1, 0, 11, 0);
  text_of(0, 0, 12, kTerminated);
  EXPECT_EQ(string_id, 3U);
  expect_record(0, 0, 10, 2);
  expect_record(1, 0, 11, 2);
  expect_record(2, 0, 12, 2);
  text_of(0, 0, 13, kTerminated);
  EXPECT_EQ(string_id, 3U);
}

TEST_F(ReadStrings, ReadAtAnotherOffset_AddsNoRecord) {
  text_of(0, 1, 10, kTerminated);
  EXPECT_EQ(string_id, 0U);
}

TEST_F(ReadStrings, ReadThatFails_HasAddedItsRecord) {
  start_connected({plc_test::reset_connection()});
  uint8_t data[4] = {};
  RegRequest request = plc_test::request_for(0);
  RegValue value = {10, data};
  EXPECT_EQ(read(&request, &value), 3U);
  EXPECT_EQ(value.count, 1U);
  EXPECT_EQ(string_id, 1U);
  expect_record(0, 0, 10, 0);
}

TEST_F(ReadStrings, ReceivedValue_IsLookedUpByTheFilesIdWhileRecordsHaveTheHosts_D20) {
  text_of(1, 0, 10, kTerminated);
  expect_record(0, 1, 10, 0);
  text_of(1, 0, 10, kTerminated);
  EXPECT_EQ(string_id, 2U) << "a record for each call, for ever";
  // A record of the host's id 77 would be the one that is marked.
  StringInfo[1].reg_id = 77;
  text_of(1, 3, 10, kTerminated);
  EXPECT_EQ(StringInfo[0].state, 0);
  EXPECT_EQ(StringInfo[1].state, 2);
}

TEST_F(ReadStrings, RecordsBehindTheUsedOnes_AreNotMarked) {
  StringInfo[5] = {0, 0, 9, 0};
  text_of(0, 0, 10, kTerminated);
  expect_record(5, 0, 9, 0);
}

TEST_F(ReadStrings, FiftyFirstRecord_GoesToTheFirstPlace) {
  string_id = 49;
  text_of(0, 0, 10, unterminated(10), kRoomForUnterminated);
  EXPECT_EQ(string_id, 50U);
  expect_record(49, 0, 10, 0);
  text_of(0, 0, 11, unterminated(11), kRoomForUnterminated);
  EXPECT_EQ(string_id, 1U);
  expect_record(0, 0, 11, 0);
  expect_record(49, 0, 10, 0);
}

TEST_F(ReadStrings, FullTableWithAReceivedRecord_StaysAsItIs) {
  string_id = 50;
  StringInfo[20] = {0, 0, 9, 2};
  text_of(0, 0, 10, kTerminated);
  EXPECT_EQ(string_id, 50U);
}

TEST_F(ReadStrings, WidthOfZeroThatIsNoString_IsCopiedAsText) {
  write_tags(0, "D,DATE,,,a,b,c,0,1\n");
  start_connected({answer(from_hex("01")), answer(kTerminated)});
  GuardedBuffer data(8, 0xEE);
  EXPECT_EQ(read_id(0, 0, 2, data.data()), 0U);
  EXPECT_EQ(to_hex(data.bytes()), "41 42 00 00 EE EE EE EE");
  EXPECT_EQ(string_id, 0U);
}

}  // namespace
