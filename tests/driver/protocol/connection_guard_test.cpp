// The buffers of an exchange at their edges: a reply, stale input and a request that are as long as can be, or longer.
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/transaction.h"
#include "tests/driver/protocol/protocol_fixture.h"

namespace plc_test {
namespace {

class ConnectionGuard : public ProtocolTest {};

constexpr uint8_t kRequest[] = {1, 2, 3, 4};

TEST_F(ConnectionGuard, ReplyAbove4096Bytes_FillsTheBufferAndNoMore) {
  peer_.answer(reply_raw(Bytes(5000, 0x5A)));
  GuardedBuffer reply(4096);
  int32_t length = 0;
  EXPECT_EQ(TransRecvSockBuff(kRequest, sizeof kRequest, reply.data(), &length, &conn_), 0);
  EXPECT_EQ(length, 4096);
  EXPECT_TRUE(reply.holds_only(0x5A));
  EXPECT_TRUE(reply.guards_intact());
}

TEST_F(ConnectionGuard, StaleInputAbove512Bytes_IsDiscardedUpTo512) {
  peer_.leave_stale(Bytes(600, 0x5A));
  EXPECT_EQ(EmptyBuffer(ScriptedSocket::kDescriptor), 512);
}

TEST_F(ConnectionGuard, EmptyRequest_IsSentWithoutAnError) {
  EXPECT_EQ(send_e(kRequest, 0, &conn_), 0);
  EXPECT_EQ(conn_.socket_fd, ScriptedSocket::kDescriptor);
}

TEST_F(ConnectionGuard, EmptyRequest_IsAnsweredLikeAnyOther) {
  peer_.answer(Bytes(16));
  GuardedBuffer reply(4096);
  int32_t length = 0;
  EXPECT_EQ(TransRecvSockBuff(kRequest, 0, reply.data(), &length, &conn_), 0);
  EXPECT_EQ(length, 16);
}

}  // namespace
}  // namespace plc_test
