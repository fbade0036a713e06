// Tests of the single read against a scripted controller: the bytes of both requests, the values in the host's buffer,
// the host's records.
#include <gtest/gtest.h>

#include "support/driver_fixture.h"
#include "support/guarded_buffer.h"

namespace {

using plc_test::answer;
using plc_test::Bytes;
using plc_test::DriverFixture;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::resolve_reply;
using plc_test::to_hex;
using plc_test::value_reply;

class ReadSingle : public DriverFixture {};

TEST_F(ReadSingle, GlobalWord_SendsBothRequestsAndStoresTheValue) {
  write_tags(0, "A1,INT,,,a,b,c,0,1,0,0,,DM\n");
  start_connected({answer(resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}})), answer(value_reply({0x12, 0x34}))});
  GuardedBuffer data(4, 0xEE);
  EXPECT_EQ(read_id(0, 0, 1, data.data()), 0U);
  const std::vector<Bytes> requests = finish();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(to_hex(requests[0]), "00 00 00 0E FF FF FF F1 00 00 0C 28 00 01 00 00 00 01 00 02 00 41 00 31");
  EXPECT_EQ(to_hex(requests[1]), "00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 40 00 01 11 22 33 44");
  EXPECT_EQ(to_hex(data.bytes()), "34 12 00 00");
  EXPECT_TRUE(data.guards_intact());
}

}  // namespace
