// The calls under the guarded exchange by themselves: one transaction, one send.
#include "plc_driver/protocol/link/transaction.h"
#include "tests/driver/guarded/guarded_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

class GuardedTransaction : public GuardedTest {
 protected:
  GuardedTransaction() { connect(); }

  // Of a request and the reply to it.
  int transact(const Bytes& request, const Bytes& reply) {
    socket_.answer_each([&](const Bytes&) { return std::vector<Arrival>{piece(reply)}; });
    int result = 0;
    output_ += capture_output([&] {
      result = TransRecvSockBuff(request.data(), static_cast<uint32_t>(request.size()), reply_.data(), &reply_length_,
                                 &conn_);
    });
    return result;
  }

  int send(const Bytes& bytes) {
    socket_.answer_each({});
    int result = 0;
    output_ += capture_output([&] { result = send_e(bytes.data(), static_cast<uint32_t>(bytes.size()), &conn_); });
    return result;
  }

  Bytes reply_ = Bytes(4096, 0);
  int32_t reply_length_ = 77;
};

TEST_F(GuardedTransaction, Answer_IsZeroWithItsLength) {
  const Bytes reply = from_hex("00 00 00 05 FF FF FF FA 12 34 56 78 00 00 2A");
  EXPECT_EQ(transact(from_hex("00 00 00 02 FF FF FF FD 12 34 56 78"), reply), 0);
  EXPECT_EQ(reply_length_, 15);
  EXPECT_EQ(to_hex(prefix_of(reply_, 15)), to_hex(reply));
}

TEST_F(GuardedTransaction, RequestWithoutAWholeHead_CountsAsNumberedZero) {
  const Bytes reply = from_hex("00 00 00 04 FF FF FF FB 00 00 00 00 00 00");
  EXPECT_EQ(transact(from_hex("00 00 00 01 FF FF FF FE 12 34 56"), reply), 0);
  EXPECT_EQ(transact({}, reply), 0);
}

TEST_F(GuardedTransaction, NoAnswer_IsMinusOneAndLeavesTheLength) {
  EXPECT_EQ(transact(from_hex("00 00 00 02 FF FF FF FD 12 34 56 78"), {}), -1);
  EXPECT_EQ(reply_length_, 77);
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(GuardedTransaction, RequestThatIsNotSent_IsMinusOne) {
  socket_.fail_send = true;
  EXPECT_EQ(transact(from_hex("00 00 00 02 FF FF FF FD 12 34 56 78"), {}), -1);
  EXPECT_EQ(take_output(), "send error\n");
}

TEST_F(GuardedTransaction, Send_GivesTheBytesSent) {
  EXPECT_EQ(send(from_hex("01 02 03")), 3);
  EXPECT_EQ(send({}), 0);
  EXPECT_TRUE(socket_.is_open());
}

TEST_F(GuardedTransaction, SendThatFails_IsMinusOne) {
  socket_.fail_send = true;
  EXPECT_EQ(send({1}), -1);
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(GuardedTransaction, SendBehindTheEndOfTheConnection_IsMinusOne) {
  socket_.leave_waiting(orderly_close());
  EXPECT_EQ(send({1}), -1);
  EXPECT_EQ(conn_.socket_fd, -1);
}

}  // namespace
}  // namespace plc_test
