// Tests of the values' byte orders.
#include "plc_driver/protocol/frames/value_order.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tests/support/bytes.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::Bytes;
using plc_test::GuardedBuffer;
using plc_test::to_hex;

// A reply of these bytes in a buffer that held something else before.
void receive(const Bytes& bytes, plc::ReplyBuffer* reply) {
  memset(reply->bytes, 0xEE, sizeof reply->bytes);
  memcpy(reply->bytes, bytes.data(), bytes.size());
  reply->accept(static_cast<int32_t>(bytes.size()));
}

TEST(ValueOrder, UnitsOfAReply_ChangeTheirBytes) {
  plc::ReplyBuffer reply;
  receive({0, 0, 0x12, 0x34, 0x56, 0x78}, &reply);
  GuardedBuffer host(4);
  plc::copy_units_to_host(reply, 2, 2, host.data());
  EXPECT_EQ(to_hex(host.bytes()), "34 12 78 56");
  EXPECT_TRUE(host.guards_intact());
}

TEST(ValueOrder, UnitsBehindTheReply_AreZeroHoweverMany) {
  plc::ReplyBuffer reply;
  receive({0, 0, 0x12, 0x34, 0x56}, &reply);
  for (const uint32_t count : {3U, 50U, 3000U}) {
    GuardedBuffer host(2 * size_t{count}, 0xA5);
    plc::copy_units_to_host(reply, 2, count, host.data());
    Bytes expected(2 * size_t{count}, 0);
    expected[0] = 0x34;
    expected[1] = 0x12;
    expected[3] = 0x56;
    EXPECT_EQ(host.bytes(), expected) << count;
    EXPECT_TRUE(host.guards_intact());
  }
}

// Far behind the end too, where the buffer holds what was there before.
TEST(ValueOrder, UnitsFarBehindALongReply_AreZero) {
  plc::ReplyBuffer reply;
  receive(Bytes(200, 0x11), &reply);
  GuardedBuffer host(800, 0xA5);
  plc::copy_units_to_host(reply, 0, 400, host.data());
  Bytes expected(800, 0);
  std::fill_n(expected.begin(), 200, uint8_t{0x11});
  EXPECT_EQ(host.bytes(), expected);
}

TEST(ValueOrder, OffsetAtTheReplysEnd_YieldsZeros) {
  plc::ReplyBuffer reply;
  receive({1, 2, 3, 4}, &reply);
  GuardedBuffer host(40, 0xA5);
  plc::copy_units_to_host(reply, 4, 20, host.data());
  EXPECT_TRUE(host.holds_only(0));
}

TEST(ValueOrder, UnitsOfTheHost_ChangeTheirBytes) {
  const uint8_t host[] = {0x34, 0x12, 0x78, 0x56};
  GuardedBuffer wire(4);
  plc::copy_units_to_wire(host, 2, wire.data());
  EXPECT_EQ(to_hex(wire.bytes()), "12 34 56 78");
  EXPECT_TRUE(wire.guards_intact());
}

}  // namespace
