// Tests of the values of single reads: byte orders, bits and where they live, bytes that the reply does not hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "plc_driver/driver_state.h"
#include "tests/support/driver_build.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::answer;
using plc_test::by_build;
using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::resolve_reply;
using plc_test::ResolvedName;
using plc_test::to_hex;
using plc_test::value_reply;
using plc_test::operator+;
using testing::EndsWith;
using testing::HasSubstr;

constexpr ResolvedName kValueHandle = {0x40, {0x11, 0x22, 0x33, 0x44}};

class ReadValues : public plc_test::DriverFixture {
 protected:
  // Reads count elements of variable 0 into a buffer of this size, all bytes 0xEE before, and returns the buffer.
  std::string values_of(uint32_t count, const Bytes& resolved, const Bytes& values, size_t size, size_t shift = 0) {
    start_connected({answer(resolved, form_), answer(values, form_)});
    GuardedBuffer data(size, 0xEE, shift);
    EXPECT_EQ(read_id(0, 0, count, data.data()), 0U);
    EXPECT_TRUE(data.guards_intact());
    value_request_ = to_hex(finish()[1]);
    return to_hex(data.bytes());
  }

  std::string value_request_;
  plc_test::ReplyForm form_ = plc_test::ReplyForm::kComplete;  // of the replies of values_of
};

TEST_F(ReadValues, Words_AreStoredLittleEndian) {
  write_tags(0, "A,INT,[0..9],,a,b,c,0,1\n");
  EXPECT_EQ(values_of(3, from_hex("01"), value_reply(from_hex("12 34 56 78 9A BC")), 6), "34 12 78 56 BC 9A");
}

TEST_F(ReadValues, DoubleWords_TravelLowWordFirst) {
  write_tags(0, "A,DINT,[0..9],,a,b,c,0,1\n");
  EXPECT_EQ(values_of(2, from_hex("01"), value_reply(from_hex("12 34 56 78 9A BC DE F0")), 8),
            "34 12 78 56 BC 9A F0 DE");
}

TEST_F(ReadValues, QuadWords_TravelLowWordFirst) {
  write_tags(0, "A,ULINT,,,a,b,c,0,1\n");
  EXPECT_EQ(values_of(2, from_hex("01"), value_reply(from_hex("12 34 56 78 9A BC DE F0")), 8),
            "34 12 78 56 BC 9A F0 DE");
}

TEST_F(ReadValues, OneWord_ClearsTheFirstFourBytesAndNoMore) {
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  const char* const values = by_build("12 34 56 78", "12 34");
  EXPECT_EQ(values_of(1, from_hex("01"), value_reply(from_hex(values)), 8), "34 12 00 00 EE EE EE EE");
}

TEST_F(ReadValues, BufferAtAnyAddress_IsFilled) {
  write_tags(0, "A,LREAL,[0..9],,a,b,c,0,1\n");
  for (size_t shift = 0; shift < 8; ++shift) {
    EXPECT_EQ(values_of(2, from_hex("01"), value_reply(from_hex("12 34 56 78 9A BC DE F0")), 8, shift),
              "34 12 78 56 BC 9A F0 DE");
  }
}

TEST_F(ReadValues, StepByte_LeadsToTheNextNamesHandle) {
  write_tags(0, "A,INT,[0..9],,a,b,c,0,1\n");
  Bytes resolved(24 + 4 * 3 + 41);
  const Bytes first = from_hex("40 11 22 33 44");
  const Bytes second = from_hex("50 55 66 77 88");
  std::copy(first.begin(), first.end(), resolved.begin() + 21);
  resolved[40] = 3;
  std::copy(second.begin(), second.end(), resolved.begin() + 36 + 21);
  values_of(2, resolved, value_reply(Bytes(4)), 4);
  EXPECT_THAT(value_request_, EndsWith("00 00 02 00 00 00 00 40 00 01 11 22 33 44 00 50 00 01 55 66 77 88"));
}

TEST_F(ReadValues, LargestStep_LeadsPastTheReplyWhereEverythingIsZero) {
  form_ = plc_test::ReplyForm::kExact;
  write_tags(0, "A,INT,[0..9],,a,b,c,0,1\n");
  Bytes resolved = resolve_reply({kValueHandle});
  resolved[40] = 0xFF;
  values_of(3, resolved, value_reply(Bytes(6)), 6);
  EXPECT_THAT(value_request_, EndsWith("00 40 00 01 11 22 33 44 00 00 00 01 00 00 00 00 00 00 00 01 00 00 00 00"));
}

TEST_F(ReadValues, ShortResolveReply_LeavesZerosAndNothingOfTheDirectory) {
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  start({answer(Bytes(64, 0xD1)), answer(Bytes(14, 0xD2) + Bytes{0} + Bytes(64, 0xD3)),
         plc_test::answer_exactly(from_hex("01")), answer(value_reply({0x12, 0x34}))});
  GuardedBuffer data(4);
  EXPECT_EQ(read_id(0, 0, 1, data.data()), 0U);
  EXPECT_THAT(to_hex(finish()[1]), EndsWith("00 00 01 00 00 00 00 00 00 01 00 00 00 00"));
}

TEST_F(ReadValues, ShortValueReply_YieldsWhatTheResolveReplyLeft) {
  form_ = plc_test::ReplyForm::kExact;
  write_tags(0, "A,DINT,[0..9],,a,b,c,0,1\n");
  Bytes resolved(20);
  resolved[16] = 0xA3;
  resolved[17] = 0xA4;
  resolved[18] = 0xA5;
  resolved[19] = 0xA6;
  EXPECT_EQ(values_of(2, resolved, value_reply(from_hex("12 34")), 8), "34 12 A4 A3 A6 A5 00 00");
}

TEST_F(ReadValues, EarlierCall_LeavesNothingForTheNext) {
  form_ = plc_test::ReplyForm::kExact;
  write_tags(0, "A,DINT,,,a,b,c,0,1\n");
  values_of(1, Bytes(64, 0xAA), value_reply(Bytes(64, 0xBB)), 4);
  EXPECT_EQ(values_of(1, from_hex("01"), value_reply({}), 4), "00 00 00 00");
}

TEST_F(ReadValues, EveryPrefixOfTheResolveReply_YieldsTheBytesThatCame) {
  form_ = plc_test::ReplyForm::kExact;
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  const Bytes whole = resolve_reply({kValueHandle});
  const char* const handles[] = {"00 00 00 01 00 00 00 00", "00 40 00 01 00 00 00 00", "00 40 00 01 11 00 00 00",
                                 "00 40 00 01 11 22 00 00", "00 40 00 01 11 22 33 00", "00 40 00 01 11 22 33 44"};
  for (size_t length = 1; length <= whole.size() && !HasFailure(); ++length) {
    EXPECT_EQ(values_of(1, plc_test::prefix_of(whole, length), value_reply({0x12, 0x34}), 4), "34 12 00 00");
    const size_t received = length <= 21 ? 0 : length >= 26 ? 5 : length - 21;
    EXPECT_THAT(value_request_, EndsWith(handles[received])) << length;
  }
}

TEST_F(ReadValues, EveryPrefixOfTheValueReply_YieldsTheBytesThatCame) {
  form_ = plc_test::ReplyForm::kExact;
  write_tags(0, "A,DINT,,,a,b,c,0,1\n");
  const Bytes whole = value_reply(from_hex("12 34 56 78"));
  const char* const values[] = {"00 00 00 00", "00 12 00 00", "34 12 00 00", "34 12 00 56", "34 12 78 56"};
  for (size_t length = 1; length <= whole.size() && !HasFailure(); ++length) {
    if (length >= 14) {
      EXPECT_EQ(values_of(1, from_hex("01"), plc_test::prefix_of(whole, length), 4), values[length - 14]) << length;
      continue;
    }
    start_connected({answer(from_hex("01")), plc_test::answer_exactly(plc_test::prefix_of(whole, length))});
    GuardedBuffer data(4, 0xEE);
    EXPECT_EQ(read_id(0, 0, 1, data.data()), 3U) << length;
    EXPECT_THAT(take_output(), EndsWith("read data err!\r\n")) << length;
    EXPECT_TRUE(data.holds_only(0xEE)) << length;
    finish();
  }
}

TEST_F(ReadValues, RepliesOfAnyBytes_StayWithinTheHostsBuffer) {
  write_tags(0,
             "A,INT,[0..9],,a,b,c,0,1\nB,DINT,[0..9],,a,b,c,1,1\nC,LINT,[0..9],,a,b,c,2,1\nD,BOOL,[0..9],,a,b,c,3,1\n"
             "x.y,BOOL,[0..9],,a,b,c,4,1\n");
  const size_t sizes[] = {10, 20, 20, 4, 4};
  for (const uint8_t fill : {uint8_t{0x00}, uint8_t{0x01}, uint8_t{0x80}, uint8_t{0xFF}}) {
    for (const size_t length : {1U, 40U, 41U, 500U, 1500U}) {
      for (uint32_t id = 0; id < 5; ++id) {
        if (HasFailure()) return;
        start_connected({plc_test::answer_raw(Bytes(length, fill)), plc_test::answer_raw(Bytes(length, fill))});
        GuardedBuffer data(sizes[id]);
        EXPECT_EQ(read_id(id, 0, 5, data.data()), length < 14 ? 3U : 0U);
        EXPECT_TRUE(data.guards_intact());
        finish();
      }
    }
  }
}

class ReadBits : public ReadValues {
 protected:
  // Reads one BOOL declared by this line. The reply's word has the bits of `word`; the handle ends in 0x4C and the
  // reply gives bit number 0x25. Returns the value and keeps the last byte of the reference.
  uint32_t bit_of(const std::string& line, uint16_t word) {
    write_tags(0, line);
    const std::string data = values_of(1, resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x4C}, 0x25}}),
                                       value_reply({static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)}), 4);
    EXPECT_THAT(data, testing::AnyOf("00 00 00 00", "01 00 00 00"));
    reference_end_ = value_request_.substr(value_request_.size() - 2);
    return data[1] == '1' ? 1 : 0;
  }

  // Bit 5 of a word that is addressed as it stands.
  void expect_in_word(const std::string& line) {
    EXPECT_EQ(bit_of(line, 0x0020), 1U) << line;
    EXPECT_EQ(reference_end_, "4C") << line;
    EXPECT_EQ(bit_of(line, 0xFFDF), 0U) << line;
  }

  // Bit 12, taken out of the reference.
  void expect_own_address(const std::string& line) {
    EXPECT_EQ(bit_of(line, 0x1000), 1U) << line;
    EXPECT_EQ(reference_end_, "40") << line;
    EXPECT_EQ(bit_of(line, 0xEFFF), 0U) << line;
  }

  std::string reference_end_;
};

TEST_F(ReadBits, MemberOnDmEmOrNoDevice_LivesInAWord) {
  expect_in_word("a.b,BOOL,,,a,b,c,0,1,0,0,,DM\n");
  expect_in_word("a.b,BOOL,,,a,b,c,0,1,0,0,,EM\n");
  expect_in_word("a.b,BOOL,,,a,b,c,0,1,0,0,\n");
  expect_in_word("a[1].b,BOOL,,,a,b,c,0,1,0,0,,DM\n");
}

TEST_F(ReadBits, MemberOnAnotherDevice_HasAnAddressOfItsOwn) {
  for (const char* device : {"MR", "LR", "TM", "FM", "CM", "ZF"}) {
    expect_own_address(std::string("a.b,BOOL,,,a,b,c,0,1,0,0,,") + device + "\n");
  }
}

TEST_F(ReadBits, ArrayOnEm_LivesInAWord) {
  expect_in_word("a,BOOL,[0..9],,a,b,c,0,1,0,0,,EM\n");
  expect_in_word("a,BOOL,[-5..-1],,a,b,c,0,1,0,0,,EM\n");
}

TEST_F(ReadBits, ArrayOfOneElementOnEm_HasAnAddressOfItsOwn) {
  expect_own_address("a,BOOL,[0..0],,a,b,c,0,1,0,0,,EM\n");
}

TEST_F(ReadBits, PlainNameElsewhere_HasAnAddressOfItsOwn) {
  expect_own_address("a,BOOL,,,a,b,c,0,1,0,0,,EM\n");
  expect_own_address("a,BOOL,,,a,b,c,0,1,0,0,,DM\n");
  expect_own_address("a,BOOL,,,a,b,c,0,1,0,0,\n");
  expect_own_address("a,BOOL,[0..9],,a,b,c,0,1,0,0,,DM\n");
  expect_own_address("a,BOOL,[0..9],,a,b,c,0,1,0,0,\n");
  expect_own_address("a[1],BOOL,,,a,b,c,0,1,0,0,,DM\n");
}

TEST_F(ReadBits, EachPosition_IsTakenFromItsByte) {
  write_tags(0, "a,BOOL,,,a,b,c,0,1,0,0,,MR\n");
  for (uint32_t bit = 0; bit < 16; ++bit) {
    const Bytes resolved = resolve_reply({{0x40, {0x11, 0x22, 0x33, static_cast<uint8_t>(0x40 + bit)}}});
    const uint16_t word = static_cast<uint16_t>(1U << bit);
    const Bytes only = {static_cast<uint8_t>(word >> 8), static_cast<uint8_t>(word)};
    const Bytes others = {static_cast<uint8_t>(~only[0]), static_cast<uint8_t>(~only[1])};
    EXPECT_EQ(values_of(1, resolved, value_reply(only), 4), "01 00 00 00") << bit;
    EXPECT_EQ(values_of(1, resolved, value_reply(others), 4), "00 00 00 00") << bit;
  }
}

TEST_F(ReadBits, ManyBits_ArePackedFromTheLowestOn) {
  write_tags(0, "a,BOOL,[0..99],,a,b,c,0,1,0,0,,MR\n");
  const std::vector<ResolvedName> names = {{0x40, {0, 0, 0, 0x00}}, {0x40, {0, 0, 0, 0x01}}, {0x40, {0, 0, 0, 0x08}},
                                           {0x40, {0, 0, 0, 0x0F}}, {0x40, {0, 0, 0, 0x00}}, {0x40, {0, 0, 0, 0x00}},
                                           {0x40, {0, 0, 0, 0x00}}, {0x40, {0, 0, 0, 0x07}}, {0x40, {0, 0, 0, 0x03}},
                                           {0x40, {0, 0, 0, 0x04}}};
  EXPECT_EQ(values_of(10, resolve_reply(names),
                      value_reply(from_hex("00 01 00 00 01 00 80 00 00 00 00 01 00 00 00 80 00 08 00 EF")), 4),
            "AD 01 00 00");
}

TEST_F(ReadBits, BytesFromTheFifthOn_AreAddedTo) {
  write_tags(0, "a,BOOL,[0..99],,a,b,c,0,1,0,0,,MR\n");
  Bytes ones;
  for (int i = 0; i < 64; ++i) ones = ones + from_hex("00 01");
  start_connected({answer(from_hex("01")), answer(value_reply(ones))});
  GuardedBuffer data(8);
  data.data()[3] = 0x55;
  data.data()[4] = 0x10;
  data.data()[5] = 0x01;
  EXPECT_EQ(read_id(0, 0, 64, data.data()), 0U);
  EXPECT_EQ(to_hex(data.bytes()), "FF FF FF FF 0F 00 FF FF");
  EXPECT_TRUE(data.guards_intact());
}

TEST_F(ReadBits, FewBits_LeaveTheBytesBehindThem) {
  write_tags(0, "a,BOOL,[0..99],,a,b,c,0,1,0,0,,MR\n");
  EXPECT_EQ(values_of(9, from_hex("01"), value_reply(Bytes(18, 0xFF)), 6), "FF 01 00 00 EE EE");
}

TEST_F(ReadBits, UnitsPastTheReply_AreZeroBits) {
  form_ = plc_test::ReplyForm::kExact;
  write_tags(0, "a,BOOL,[0..99],,a,b,c,0,1,0,0,,MR\n");
  EXPECT_EQ(values_of(3, from_hex("01"), value_reply(from_hex("00 01 00")), 4), "01 00 00 00");
}

}  // namespace
