// The bit writes that set and reset, and one literal exchange of each of the 12 named bit writes.
#include <cerrno>

#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/writes/write_functions.h"
#include "tests/driver/protocol/protocol_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class WriteBits : public ProtocolTest {
 protected:
  void expect_frames(int32_t result, std::initializer_list<std::string_view> literals) {
    EXPECT_EQ(result, 0);
    EXPECT_EQ(sent(), frames(literals));
    EXPECT_EQ(peer_.unused_answers(), 0U);
  }

  // Answers one read-modify-write of a word.
  void answer_word(uint16_t bit_number, std::string_view word) {
    peer_.answer(resolve_reply(bit_number));
    peer_.answer(value_reply(word));
    peer_.answer(acknowledgment());
  }

  // The second bytes of the set and reset requests: 32 and 33.
  std::string sent_operations() const {
    std::string operations;
    for (const Bytes& request : peer_.requests()) {
      if (request.at(10) == 0x32) operations += '1';
      if (request.at(10) == 0x33) operations += '0';
    }
    return operations;
  }
};

TEST_F(WriteBits, PlainBitOfOne_IsSet) {
  answer_writes();
  TagEntry tag = make_bit("B", kMr);
  expect_frames(ev_plc_write_bits(element(0), value("01", 1), &conn_, &tag),
                {"00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, PlainBitOfZero_IsReset) {
  answer_writes();
  TagEntry tag = make_bit("B", kMr);
  expect_frames(ev_plc_write_bits(element(0), value("00", 1), &conn_, &tag),
                {"00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 33 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, PlainBitOfTwo_SendsFifteenBytesWithoutACommand_D27) {
  for (const std::string_view data : {"02", "FF", "80"}) {
    peer_.forget();
    plc::sid = 0;
    answer_writes();
    TagEntry tag = make_bit("B", kMr);
    expect_frames(ev_plc_write_bits(element(0), value(data, 1), &conn_, &tag),
                  {"00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 42",
                   "00 00 00 06 FF FF FF F9 00 01 00 01 A1 D4 E5"});
  }
}

TEST_F(WriteBits, LocalPlainBit_IsSetUnderItsProgram) {
  answer_writes();
  TagEntry tag = local(make_bit("B", kMr));
  expect_frames(ev_plc_write_bits_local(element(0), value("01", 1), &conn_, &tag, kMainNumber),
                {"00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, LocalPlainBitOfTwo_SendsFifteenBytesWithoutACommand_D27) {
  answer_writes();
  TagEntry tag = local(make_bit("B", kMr));
  expect_frames(ev_plc_write_bits_local(element(0), value("02", 1), &conn_, &tag, kMainNumber),
                {"00 00 00 12 FF FF FF ED 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 01 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, StructureBitOnMr_IsSetWithTheDeviceCode) {
  answer_writes();
  expect_frames(ev_plc_write_bits_struct(element(0), value("01", 1), &conn_, "A.B", kMr),
                {"00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 01 00 03 00 41 00 2E 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 11 D4 E5"});
}

TEST_F(WriteBits, StructureBitOnLr_IsResetWithTheDeviceCode) {
  answer_writes();
  expect_frames(ev_plc_write_bits_struct(element(0), value("00", 1), &conn_, "A.B", kLr),
                {"00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 01 00 03 00 41 00 2E 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 33 00 01 12 D4 E5"});
}

TEST_F(WriteBits, StructureBitOnMrOfTwo_SendsFourteenBytesWithoutACommand_D27) {
  answer_writes();
  expect_frames(ev_plc_write_bits_struct(element(0), value("02", 1), &conn_, "A.B", kMr),
                {"00 00 00 10 FF FF FF EF 00 00 0C 28 00 01 00 00 00 01 00 03 00 41 00 2E 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 01 11 D4 E5"});
}

TEST_F(WriteBits, LocalStructureBit_IsReadModifiedAndWritten) {
  answer_word(3, "00 01");
  expect_frames(ev_plc_write_bits_struct_local(element(0), value("01", 1), &conn_, "A.B", kMainNumber),
                {"00 00 00 16 FF FF FF E9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 03 00 41 00 2E 00 42",
                 "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 A1 00 01 B2 C3 D4 E5",
                 "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 00 09"});
}

TEST_F(WriteBits, MemberOfAStructureArrayOnMr_IsSetWithTheDeviceCode) {
  answer_writes();
  TagEntry tag = make_bit("A[#1].B", kMr);
  expect_frames(
      ev_plc_write_array_struct_bits(element(0), value("01", 1), &conn_, &tag, kMr),
      {"00 00 00 18 FF FF FF E7 00 00 0C 28 00 01 00 00 00 01 00 07 00 41 00 5B 00 23 00 31 00 5D 00 2E 00 42",
       "00 00 00 06 FF FF FF F9 00 01 32 00 01 11 D4 E5"});
}

TEST_F(WriteBits, MemberOfAStructureArrayOnMrOfTwo_SendsFourteenBytesWithoutACommand_D27) {
  answer_writes();
  TagEntry tag = make_bit("A[#1].B", kMr);
  EXPECT_EQ(ev_plc_write_array_struct_bits(element(0), value("02", 1), &conn_, &tag, kMr), 0);
  EXPECT_EQ(to_hex(peer_.requests().at(1)), "00 00 00 06 FF FF FF F9 00 01 01 11 D4 E5");
}

TEST_F(WriteBits, LocalMemberOfAStructureArray_IsReadModifiedAndWritten) {
  answer_word(3, "00 01");
  TagEntry tag = local(make_bit("A[#1].B", kMr));
  expect_frames(ev_plc_write_array_struct_bits_local(element(0), value("01", 1), &conn_, &tag, kMainNumber),
                {"00 00 00 1E FF FF FF E1 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01"
                 "00 07 00 41 00 5B 00 23 00 31 00 5D 00 2E 00 42",
                 "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 A1 00 01 B2 C3 D4 E5",
                 "00 00 00 0E FF FF FF F1 00 02 1E 01 00 A1 00 00 00 01 B2 C3 D4 E5 00 09"});
}

TEST_F(WriteBits, Array_EachElementIsResolvedAndSetOrReset) {
  answer_writes(2);
  TagEntry tag = with_ranges(make_bit("B", kMr), {0, 15});
  expect_frames(ev_plc_write_array_bits(element(5), value("01", 2), &conn_, &tag, 0, 1),
                {"00 00 00 14 FF FF FF EB 00 00 0C 28 00 01 00 00 00 01 00 05 00 42 00 5B 00 23 00 35 00 5D",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5",
                 "00 00 00 14 FF FF FF EB 00 02 0C 28 00 01 00 00 00 01 00 05 00 42 00 5B 00 23 00 36 00 5D",
                 "00 00 00 06 FF FF FF F9 00 03 33 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, LocalArray_EachElementIsResolvedUnderItsProgram) {
  answer_writes();
  TagEntry tag = local(with_ranges(make_bit("B", kMr), {0, 15}));
  expect_frames(
      ev_plc_write_array_bits_local(element(5), value("01", 1), &conn_, &tag, 1, kMainNumber),
      {"00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01 00 05 00 42 00 5B 00 23 00 35 00 5D",
       "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5"});
}

// Ranges [1..5][2..9]: the extent is that of the right range, its lower bound goes to the first subscript.
TEST_F(WriteBits, TwoDimensions_AreNamedWithTheFirstPairsExtentAndLowerBounds) {
  answer_writes();
  TagEntry tag = with_ranges(make_bit("B", kMr), {1, 5}, {2, 9});
  expect_frames(ev_plc_write_array2_bits(element(9), value("01", 1), &conn_, 9, &tag, 0, 1, 0),
                {"00 00 00 1A FF FF FF E5 00 00 0C 28 00 01 00 00 00 01"
                 "00 08 00 42 00 5B 00 23 00 33 00 2C 00 23 00 32 00 5D",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, LocalTwoDimensions_AreNamedLikewiseUnderTheirProgram) {
  answer_writes();
  TagEntry tag = local(with_ranges(make_bit("B", kMr), {1, 5}, {2, 9}));
  expect_frames(ev_plc_write_array2_bits_local(element(9), value("00", 1), &conn_, 9, &tag, 1, kMainNumber),
                {"00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01"
                 "00 08 00 42 00 5B 00 23 00 33 00 2C 00 23 00 32 00 5D",
                 "00 00 00 06 FF FF FF F9 00 01 33 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, TwoDimensions_AreWrittenWhereTheSingleReadFindsThem) {
  TagEntry tag = with_ranges(make_bit("B", kMr), {1, 5}, {2, 9});
  use_tags({tag});
  for (uint32_t e = 0; e < 40; ++e) {
    peer_.forget();
    answer_writes();
    EXPECT_EQ(write(0, e, "01", 1), 0U);
    peer_.answer(resolve_reply());
    peer_.answer(value_reply("00 01"));
    EXPECT_EQ(ev_plc_read(element(e), value("00 00 00 00", 1), &conn_), 0U);
    ASSERT_EQ(sent_names().size(), 2U);
    EXPECT_EQ(sent_names()[0], sent_names()[1]);
  }
}

TEST_F(WriteBits, ThreeDimensions_AreNamedAsTheWordWrites) {
  answer_writes();
  const TagEntry tag = with_ranges(make_bit("B", kMr), {7, 8}, {1, 3}, {5, 8});
  expect_frames(ev_plc_write_array3_bits(element(6), value("01", 1), &conn_, tag),
                {"00 00 00 20 FF FF FF DF 00 00 0C 28 00 01 00 00 00 01"
                 "00 0B 00 42 00 5B 00 23 00 35 00 2C 00 23 00 32 00 2C 00 23 00 39 00 5D",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, LocalThreeDimensions_AreNamedLikewiseUnderTheirProgram) {
  answer_writes();
  const TagEntry tag = local(with_ranges(make_bit("B", kMr), {7, 8}, {1, 3}, {5, 8}));
  expect_frames(ev_plc_write_array3_bits_local(element(6), value("01", 1), &conn_, tag),
                {"00 00 00 26 FF FF FF D9 00 00 0C 28 00 01 01 01 00 07 00 00 00 00 00 01"
                 "00 0B 00 42 00 5B 00 23 00 35 00 2C 00 23 00 32 00 2C 00 23 00 39 00 5D",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 A1 D4 E5"});
}

TEST_F(WriteBits, ThreeDimensionsOfMembers_AreSetAndResetToo_D31) {
  for (const uint8_t name_kind : {uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
    peer_.forget();
    answer_writes(2);
    TagEntry tag = with_ranges(make_bit("A.B", kDm), {0, 1}, {0, 1}, {0, 1});
    tag.name_kind = name_kind;
    EXPECT_EQ(ev_plc_write_array3_bits(element(0), value("01", 1), &conn_, tag), 0);
    EXPECT_EQ(ev_plc_write_array3_bits_local(element(0), value("00", 1), &conn_, local(tag)), 0);
    EXPECT_EQ(sent_operations(), "10");
  }
}

TEST_F(WriteBits, TenElements_TheFirstByteServesEightAndTheRestAreReset) {
  answer_writes(10);
  TagEntry tag = with_ranges(make_bit("B", kMr), {0, 15});
  EXPECT_EQ(ev_plc_write_array_bits(element(0), value("FF FF", 10), &conn_, &tag, 0, 1), 0);
  EXPECT_EQ(sent_operations(), "1111111100");
  EXPECT_EQ(sent_names().front(), "B[#0]");
  EXPECT_EQ(sent_names().back(), "B[#9]");
  EXPECT_EQ(plc::sid, 20);
}

TEST_F(WriteBits, FortyElements_AreResetFromTheNinthOn) {
  answer_writes(40);
  TagEntry tag = with_ranges(make_bit("B", kMr), {0, 63});
  EXPECT_EQ(ev_plc_write_array_bits(element(0), value("FF FF FF FF FF", 40), &conn_, &tag, 0, 1), 0);
  EXPECT_EQ(sent_operations(), "11111111" + std::string(32, '0'));
}

TEST_F(WriteBits, Elements_TakeTheBitsOfTheFirstByteInOrder) {
  answer_writes(8);
  TagEntry tag = with_ranges(make_bit("B", kMr), {0, 15});
  EXPECT_EQ(ev_plc_write_array_bits(element(0), value("A6", 8), &conn_, &tag, 0, 1), 0);
  EXPECT_EQ(sent_operations(), "01100101");
}

TEST_F(WriteBits, CountZeroOfAnArray_SendsNothing) {
  TagEntry tag = with_ranges(make_bit("B", kMr), {0, 15});
  EXPECT_EQ(ev_plc_write_array_bits(element(0), value("01", 0), &conn_, &tag, 0, 1), 0);
  EXPECT_EQ(sent(), frames({}));
}

TEST_F(WriteBits, AuxFlagAndCommaFlag_ChangeNothing) {
  TagEntry tag = with_ranges(make_bit("G[#1,#2]", kMr), {0, 3}, {0, 3});
  std::vector<std::vector<std::string>> all;
  for (const bool aux_flag : {false, true}) {
    peer_.forget();
    plc::sid = 0;
    answer_writes();
    EXPECT_EQ(ev_plc_write_array2_bits(element(1), value("01", 1), &conn_, 3, &tag, aux_flag, 1, !aux_flag), 0);
    all.push_back(sent());
  }
  EXPECT_EQ(all.at(0), all.at(1));
}

TEST_F(WriteBits, ArrayElements_FirstFailureEndsTheCall) {
  TagEntry tag = with_ranges(make_bit("B", kMr), {0, 15});
  for (int good = 0; good < 6; ++good) {
    peer_.forget();
    plc::init = 1;
    conn_.socket_fd = ScriptedSocket::kDescriptor;
    for (int i = 0; i < good; ++i) peer_.answer(i % 2 == 0 ? resolve_reply() : acknowledgment());
    peer_.answer(fail_receive(ECONNRESET));
    EXPECT_EQ(ev_plc_write_array_bits(element(0), value("FF", 3), &conn_, &tag, 0, 1), 3);
    EXPECT_EQ(peer_.requests().size(), static_cast<size_t>(good) + 1);
    EXPECT_EQ(plc::init, 0U);
  }
}

TEST_F(WriteBits, EmptyReplies_FailAndKeepTheConnection) {
  TagEntry tag = make_bit("B", kMr);
  peer_.answer(Bytes{});
  EXPECT_EQ(ev_plc_write_bits(element(0), value("01", 1), &conn_, &tag), 3);
  EXPECT_EQ(peer_.requests().size(), 1U);
  peer_.answer(resolve_reply());
  peer_.answer(Bytes{});
  EXPECT_EQ(ev_plc_write_bits(element(0), value("01", 1), &conn_, &tag), 3);
  EXPECT_EQ(plc::init, 1U);
}

TEST_F(WriteBits, OneByteReplies_AreEnough) {
  TagEntry tag = make_bit("B", kMr);
  peer_.answer(reply_exactly(Bytes{0}));
  peer_.answer(reply_exactly(Bytes{0}));
  expect_frames(ev_plc_write_bits(element(0), value("01", 1), &conn_, &tag),
                {"00 00 00 0C FF FF FF F3 00 00 0C 28 00 01 00 00 00 01 00 01 00 42",
                 "00 00 00 06 FF FF FF F9 00 01 32 00 01 00 00 00"});
}

TEST_F(WriteBits, LostConnection_FailsAndClearsTheFlag) {
  TagEntry tag = make_bit("B", kMr);
  for (const bool resolved : {false, true}) {
    peer_.forget();
    plc::init = 1;
    conn_.socket_fd = ScriptedSocket::kDescriptor;
    if (resolved) peer_.answer(resolve_reply());
    peer_.answer(say_nothing());
    capture_output([&] { EXPECT_EQ(ev_plc_write_bits(element(0), value("01", 1), &conn_, &tag), 3); });
    EXPECT_EQ(plc::init, 0U);
    EXPECT_EQ(conn_.socket_fd, -1);
  }
}

TEST_F(WriteBits, ZeroExtent_FailsWithNothingSent) {
  TagEntry two = with_ranges(make_bit("B", kMr), {0, 3}, {1, 0});
  EXPECT_EQ(ev_plc_write_array2_bits(element(1), value("01", 1), &conn_, 0, &two, 0, 1, 0), 3);
  const TagEntry three = with_ranges(make_bit("B", kMr), {0, 1}, {1, 0}, {0, 3});
  EXPECT_EQ(ev_plc_write_array3_bits(element(1), value("01", 1), &conn_, three), 3);
  EXPECT_EQ(sent(), frames({}));
  EXPECT_EQ(plc::sid, 0);
}

}  // namespace
}  // namespace plc_test
