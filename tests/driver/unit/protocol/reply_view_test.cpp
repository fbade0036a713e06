// Tests of the total reader of replies, of the walk over the names of a resolve reply, and of the orders of values.
#include "plc_driver/protocol/frames/reply_view.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "plc_driver/protocol/frames/value_order.h"
#include "plc_driver/protocol/handles/value_request.h"
#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc::NameCursor;
using plc::NameHandle;
using plc::ReplyBuffer;
using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::to_hex;

// Takes in a reply as an exchange does.
void accept(ReplyBuffer* reply, const Bytes& bytes) {
  std::copy(bytes.begin(), bytes.end(), reply->bytes);
  reply->accept(static_cast<int32_t>(bytes.size()));
}

TEST(ReplyBuffer, OffsetPastTheReply_IsZero) {
  const auto reply = std::make_unique<ReplyBuffer>();
  EXPECT_EQ(reply->at(0), 0);
  accept(reply.get(), from_hex("11 22 33"));
  EXPECT_EQ(reply->length, 3);
  EXPECT_EQ(reply->at(2), 0x33);
  for (const uint32_t offset : {3U, 4U, 44U, 4095U, 4096U, 4097U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    EXPECT_EQ(reply->at(offset), 0) << offset;
  }
}

TEST(ReplyBuffer, OffsetPastTheReply_YieldsWhatAnEarlierReplyLeft) {
  const auto reply = std::make_unique<ReplyBuffer>();
  accept(reply.get(), from_hex("11 22 33 44 55"));
  accept(reply.get(), from_hex("AA BB"));
  EXPECT_EQ(reply->length, 2);
  EXPECT_EQ(reply->at(1), 0xBB);
  EXPECT_EQ(reply->at(2), 0x33);
  EXPECT_EQ(reply->at(4), 0x55);
  EXPECT_EQ(reply->at(5), 0);
}

TEST(ReplyBuffer, LongestReply_IsReadToItsLastByte) {
  const auto reply = std::make_unique<ReplyBuffer>();
  accept(reply.get(), Bytes(4096, 0x77));
  EXPECT_EQ(reply->at(4095), 0x77);
  EXPECT_EQ(reply->at(4096), 0);
  EXPECT_EQ(reply->unit_at(4095), 0x7700U);
}

TEST(ReplyBuffer, Units_AreBigEndianAndTheLowUnitComesFirst) {
  const auto reply = std::make_unique<ReplyBuffer>();
  accept(reply.get(), from_hex("12 34 56 78"));
  EXPECT_EQ(reply->unit_at(0), 0x1234U);
  EXPECT_EQ(reply->unit_at(3), 0x7800U);
  EXPECT_EQ(reply->double_unit_at(0), 0x56781234U);
  EXPECT_EQ(reply->double_unit_at(2), 0x00005678U);
}

// A reply of some names: byte `step` stands 40 bytes behind each name's position.
Bytes name_record(uint8_t mark, uint8_t step) {
  Bytes record(41);
  record[21] = mark;
  record[22] = static_cast<uint8_t>(mark + 1);
  record[23] = static_cast<uint8_t>(mark + 2);
  record[24] = static_cast<uint8_t>(mark + 3);
  record[25] = static_cast<uint8_t>(mark + 4);
  record[30] = static_cast<uint8_t>(mark + 9);
  record[40] = step;
  return record;
}

void expect_handle(const NameCursor& name, const char* expected) {
  const NameHandle handle = plc::handle_at(name);
  EXPECT_EQ(to_hex({handle.lead, handle.reference[0], handle.reference[1], handle.reference[2], handle.reference[3]}),
            expected);
}

TEST(NameCursor, StepByte_LeadsToTheNextName) {
  const auto reply = std::make_unique<ReplyBuffer>();
  Bytes bytes(24 + 4 * 5 + 24 + 4 * 255 + 41);
  const Bytes first = name_record(0x10, 5);
  const Bytes second = name_record(0x30, 255);
  const Bytes third = name_record(0x50, 0);
  std::copy(third.begin(), third.end(), bytes.begin() + 44 + 1044);
  std::copy(second.begin(), second.end(), bytes.begin() + 44);
  std::copy(first.begin(), first.end(), bytes.begin());
  accept(reply.get(), bytes);
  NameCursor name(*reply);
  expect_handle(name, "10 11 12 13 14");
  EXPECT_EQ(plc::locate_word_bit(name), 0x09);
  name.advance();
  expect_handle(name, "30 31 32 33 34");
  name.advance();
  expect_handle(name, "50 51 52 53 54");
  name.advance();
  expect_handle(name, "00 00 00 00 00");
}

TEST(NameCursor, WalkPastTheReply_YieldsZerosHoweverLong) {
  const auto reply = std::make_unique<ReplyBuffer>();
  accept(reply.get(), Bytes(4096, 0xFF));
  NameCursor name(*reply);
  for (int i = 0; i < 10000; ++i) name.advance();
  expect_handle(name, "00 00 00 00 00");
  EXPECT_EQ(plc::locate_word_bit(name), 0);
}

TEST(NameCursor, ReplyCutWithinAName_YieldsZerosBehindTheCut) {
  const Bytes whole = name_record(0x10, 0);
  const char* const expected[] = {"00 00 00 00 00", "10 00 00 00 00", "10 11 00 00 00",
                                  "10 11 12 00 00", "10 11 12 13 00", "10 11 12 13 14"};
  for (size_t length = 0; length <= whole.size(); ++length) {
    const auto reply = std::make_unique<ReplyBuffer>();
    accept(reply.get(), plc_test::prefix_of(whole, length));
    const size_t received = length <= 21 ? 0 : length >= 26 ? 5 : length - 21;
    expect_handle(NameCursor(*reply), expected[received]);
  }
}

TEST(BitNumber, WordBit_IsTheLowHalfOfItsByte) {
  const auto reply = std::make_unique<ReplyBuffer>();
  Bytes bytes = name_record(0x10, 0);
  bytes[30] = 0xFA;
  accept(reply.get(), bytes);
  EXPECT_EQ(plc::locate_word_bit(NameCursor(*reply)), 0x0A);
}

TEST(BitNumber, AddressBit_IsTakenOutOfTheReference) {
  NameHandle handle = {0x40, {0x11, 0x22, 0x33, 0x4C}};
  EXPECT_EQ(plc::take_address_bit(&handle), 0x0C);
  EXPECT_EQ(handle.reference[3], 0x40);
}

TEST(ValueRequest, HeadAndReferences_StandAsTheyTravel) {
  GuardedBuffer buffer(34, 0xEE);
  plc::FrameWriter request(buffer.data(), 34);
  plc::begin_value_request(&request, 0x10002);
  plc::append_reference(&request, {0x40, {0x11, 0x22, 0x33, 0x44}}, 1);
  plc::append_reference(&request, {0x50, {0x55, 0x66, 0x77, 0x88}}, 2);
  EXPECT_FALSE(request.failed);
  EXPECT_EQ(to_hex(Bytes(buffer.data() + 10, buffer.data() + 34)),
            "1E 09 00 00 02 00 00 00 00 40 00 01 11 22 33 44 00 50 00 02 55 66 77 88");
  plc::append_reference(&request, {0x50, {0x55, 0x66, 0x77, 0x88}}, 2);
  EXPECT_TRUE(request.failed);
  EXPECT_TRUE(buffer.guards_intact());
}

TEST(ValueOrder, Units_GoToTheHostLittleEndian) {
  const auto reply = std::make_unique<ReplyBuffer>();
  accept(reply.get(), from_hex("00 12 34 56 78 9A"));
  for (size_t shift = 0; shift < 2; ++shift) {
    GuardedBuffer host(4, 0xEE, shift);
    plc::copy_units_to_host(*reply, 1, 2, host.data());
    EXPECT_EQ(to_hex(host.bytes()), "34 12 78 56");
    EXPECT_TRUE(host.guards_intact());
  }
}

TEST(ValueOrder, UnitsPastTheReply_AreZero) {
  const auto reply = std::make_unique<ReplyBuffer>();
  accept(reply.get(), from_hex("12 34 56"));
  GuardedBuffer host(8, 0xEE);
  plc::copy_units_to_host(*reply, 0, 4, host.data());
  EXPECT_EQ(to_hex(host.bytes()), "34 12 00 56 00 00 00 00");
  plc::copy_units_to_host(*reply, 4095, 4, host.data());
  EXPECT_EQ(to_hex(host.bytes()), "00 00 00 00 00 00 00 00");
  EXPECT_TRUE(host.guards_intact());
}

TEST(ValueOrder, UnitsOfTheHost_TravelBigEndian) {
  const Bytes host = from_hex("34 12 78 56");
  GuardedBuffer wire(4, 0xEE);
  plc::copy_units_to_wire(host.data(), 2, wire.data());
  EXPECT_EQ(to_hex(wire.bytes()), "12 34 56 78");
  EXPECT_TRUE(wire.guards_intact());
}

}  // namespace
