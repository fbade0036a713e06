// Tests of the drain, the send, one exchange and the close.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>

#include "tests/driver/integration/connection_fixture.h"

namespace {

using plc_test::answer;
using plc_test::answer_raw;
using plc_test::by_build;
using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::is_open_descriptor;
using plc_test::kLoopbackAddress;
using plc_test::kNoLength;
using plc_test::PeerStep;
using plc_test::wait_for_end;
using plc_test::wait_for_input;
using plc_test::wrapped_calls;
using plc_test::operator+;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class EmptyBufferTest : public plc_test::ConnectionFixture {};

// A host without standard input: the system gives its number to the socket.
TEST_F(EmptyBufferTest, SocketNumberZero_IsDrainedAndServed) {
  peer_ = std::make_unique<plc_test::ScriptedPeer>(std::vector<PeerStep>{answer(Bytes(14) + from_hex("0A 0B"))});
  std::unique_ptr<plc_test::ClosedDescriptor> standard_input;
  ASSERT_EQ(captured([&] {
              standard_input = std::make_unique<plc_test::ClosedDescriptor>(STDIN_FILENO);
              return SetupTCPComm(&conn_, kLoopbackAddress, peer_->port());
            }),
            0);
  ASSERT_TRUE(peer_->wait_for_connections(1));
  EXPECT_EQ(conn_.socket_fd, STDIN_FILENO);
  queue_stale(3);
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), by_build(3, 0));
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply(), reply_to(from_hex("01"), from_hex("0A 0B")));
  QuitSock(&conn_);
  EXPECT_FALSE(is_open_descriptor(STDIN_FILENO));
}

TEST_F(EmptyBufferTest, NothingPending_GivesZeroWithoutWaiting) {
  connect_to({});
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 0);
  EXPECT_EQ(wrapped_calls().exchange_calls, std::vector<std::string>{"select"});
  EXPECT_EQ(wrapped_calls().select_timeouts[0].tv_sec, 0);
  EXPECT_EQ(wrapped_calls().select_timeouts[0].tv_usec, 0);
}

TEST_F(EmptyBufferTest, PendingBytes_AreDiscardedAndCounted) {
  connect_to({});
  queue_stale(100);
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), by_build(100, 0));
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 0);
}

TEST_F(EmptyBufferTest, MoreThan512Bytes_AreLeftToTheNextReceive_D17) {
  connect_to({});
  queue_stale(600);
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 512);
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 88);
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 0);
}

TEST_F(EmptyBufferTest, ClosedConnection_GivesTheReceivesResult) {
  connect_to({plc_test::close_orderly()});
  ASSERT_EQ(exchange(from_hex("01")), 0);
  ASSERT_TRUE(wait_for_end(conn_.socket_fd));
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 0);
}

TEST_F(EmptyBufferTest, FailingSelect_GivesItsResult) {
  connect_to({});
  wrapped_calls().instead_of_select = [](fd_set*, fd_set*) { return -1; };
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), by_build(-1, 0));
  wrapped_calls().instead_of_select = [](fd_set* readable, fd_set*) {
    FD_ZERO(readable);
    return 1;
  };
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 0);
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "select"})) << "no receive";
}

TEST_F(EmptyBufferTest, DescriptorThatSelectCannotTake_GivesMinusOneWithoutAsking) {
  const int refused = by_build(-1, 0);
  EXPECT_EQ(EmptyBuffer(-1), refused);
  EXPECT_EQ(EmptyBuffer(FD_SETSIZE), refused);
  EXPECT_EQ(EmptyBuffer(INT32_MAX), refused);
  EXPECT_EQ(EmptyBuffer(INT32_MIN), refused);
  EXPECT_EQ(wrapped_calls().selects, 0);
}

class SendE : public plc_test::ConnectionFixture {
 protected:
  int send_bytes(const Bytes& bytes) {
    return captured([&] { return send_e(bytes.data(), static_cast<uint32_t>(bytes.size()), &conn_); });
  }
};

TEST_F(SendE, Bytes_AreSentBehindADrainAndCounted) {
  connect_to({answer(from_hex("55"))});
  queue_stale(10);
  EXPECT_EQ(send_bytes(from_hex("01 02 03")), 3);
  using Calls = std::vector<std::string>;
  const Calls looked_again = {"select", "recv", "select", "send"};
  EXPECT_EQ(wrapped_calls().exchange_calls, by_build(Calls{"select", "recv", "send"}, looked_again));
  ASSERT_TRUE(wait_for_input(conn_.socket_fd, 1));
  EXPECT_EQ(finish(0), std::vector<Bytes>{from_hex("01 02 03")});
  EXPECT_EQ(take_output(), "");
}

TEST_F(SendE, SendThatTakesAPart_ReturnsThatPart) {
  const plc_test::LoopbackSocket unread(SOCK_STREAM, 1);
  ASSERT_EQ(set_up(kLoopbackAddress, unread.port()), 0);
  take_output();
  const Bytes more_than_fits(32 * 1024 * 1024);
  const int sent = send_bytes(more_than_fits);
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, static_cast<int>(more_than_fits.size()));
  EXPECT_EQ(take_output(), "");
  const int socket_fd = conn_.socket_fd;
  EXPECT_TRUE(is_open_descriptor(socket_fd));
  // Once nothing more fits, the send time-out makes a send fail.
  int last = sent;
  for (int tries = 0; tries < 100 && last >= 0; ++tries) last = send_bytes(more_than_fits);
  EXPECT_EQ(last, -1);
  EXPECT_EQ(take_output(), "send error\n");
  expect_closed(socket_fd);
}

TEST_F(SendE, NoSocket_FailsWithItsLineAndIsNotClosedAgain) {
  EXPECT_EQ(send_bytes(from_hex("01")), -1);
  EXPECT_EQ(take_output(), "send error\n");
  EXPECT_EQ(wrapped_calls().exchange_calls, std::vector<std::string>{"send"});
  EXPECT_EQ(conn_.socket_fd, -1);
}

class TransRecv : public plc_test::ConnectionFixture {};

TEST_F(TransRecv, RequestAndReply_TakeFourCalls) {
  connect_to({answer(Bytes(14) + from_hex("0A 0B 0C"))});
  EXPECT_EQ(exchange(from_hex("01 02")), 0);
  EXPECT_EQ(reply(), reply_to(from_hex("01 02"), from_hex("0A 0B 0C")));
  EXPECT_EQ(reply_[17], 0xEE);
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "send", "select", "recv"}));
  EXPECT_EQ(finish(0), std::vector<Bytes>{from_hex("01 02")});
  EXPECT_EQ(take_output(), "");
}

TEST_F(TransRecv, ReplyWait_IsTheContextsTimeInWholeSeconds) {
  connect_to({answer(from_hex("0A")), answer(from_hex("0B"))});
  conn_.recv_timeout_s = 7;
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(wrapped_calls().select_timeouts.at(1).tv_sec, 7);
  EXPECT_EQ(wrapped_calls().select_timeouts.at(1).tv_usec, 0);
  conn_.recv_timeout_s = 0xFFFFFFFF;
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(wrapped_calls().select_timeouts.at(3).tv_sec, INT32_MAX) << "not negative where time has 32 bits";
}

TEST_F(TransRecv, StaleBytes_AreDrainedBeforeTheRequest) {
  connect_to({answer(Bytes(14) + from_hex("0A 0B"))});
  queue_stale(512);
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply(), reply_to(from_hex("01"), from_hex("0A 0B")));
}

TEST_F(TransRecv, SixHundredStaleBytes_LeaveTheLast88InFrontOfTheReply_D17) {
  connect_to({answer_raw(from_hex("AA BB CC DD"))});
  queue_stale(600);
  receive_once_there_are(88 + 4);
  EXPECT_EQ(exchange(from_hex("01")), 0);
  ASSERT_EQ(reply_length_, 92);
  for (size_t i = 0; i < 88; ++i) EXPECT_EQ(reply_[i], static_cast<uint8_t>(512 + i)) << i;
  EXPECT_EQ(reply_[88], 0xAA);
  EXPECT_EQ(reply_[91], 0xDD);
}

TEST_F(TransRecv, ReplyOf5000Bytes_YieldsTheFirst4096AndTheNextDrainTakes512OfTheRest_D17) {
  Bytes large(5000);
  for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i >> 4);
  connect_to({answer_raw(large), answer_raw(from_hex("AA BB"))});
  wrapped_calls().before_recv = [this] { EXPECT_TRUE(wait_for_input(conn_.socket_fd, 5000)); };
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply_length_, 4096);
  EXPECT_EQ(reply_.bytes(), plc_test::prefix_of(large, 4096));
  EXPECT_TRUE(reply_.guards_intact());
  wrapped_calls().reset();
  receive_once_there_are(5000 - 4096 - 512 + 2);
  EXPECT_EQ(exchange(from_hex("02")), 0);
  EXPECT_EQ(reply_length_, 394);
  EXPECT_EQ(reply_[0], large[4096 + 512]);
  EXPECT_EQ(reply_[392], 0xAA);
}

TEST_F(TransRecv, RestOfALargeReplyUpTo512Bytes_IsDrained) {
  connect_to({answer_raw(Bytes(4096 + 512, 0x77)), answer_raw(from_hex("AA BB"))});
  wrapped_calls().before_recv = [this] { EXPECT_TRUE(wait_for_input(conn_.socket_fd, 4096 + 512)); };
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply_length_, 4096);
  wrapped_calls().reset();
  EXPECT_EQ(exchange(from_hex("02")), 0);
  EXPECT_EQ(reply(), from_hex("AA BB"));
}

TEST_F(TransRecv, NoReplyInTime_PrintsAndCloses) {
  connect_to({plc_test::stay_silent()});
  const int socket_fd = conn_.socket_fd;
  conn_.recv_timeout_s = 1;
  const auto begin = steady_clock::now();
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_GE(steady_clock::now() - begin, milliseconds(1000));
  EXPECT_EQ(take_output(), "--timeout--\r\n");
  EXPECT_EQ(reply_length_, kNoLength);
  expect_closed(socket_fd);
}

TEST_F(TransRecv, TimeoutOfZero_IsAPoll) {
  connect_to({plc_test::stay_silent()});
  const int socket_fd = conn_.socket_fd;
  conn_.recv_timeout_s = 0;
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_EQ(wrapped_calls().select_timeouts.at(1).tv_sec, 0);
  EXPECT_EQ(wrapped_calls().select_timeouts.at(1).tv_usec, 0);
  EXPECT_EQ(take_output(), "--timeout--\r\n");
  expect_closed(socket_fd);
}

TEST_F(TransRecv, TimeoutOfZero_TakesAReplyThatIsThere) {
  connect_to({answer(Bytes(14) + from_hex("0A"))});
  conn_.recv_timeout_s = 0;
  wrapped_calls().before_select = [this] {
    if (wrapped_calls().selects == 2) {
      EXPECT_TRUE(wait_for_input(conn_.socket_fd, 15));
    }
  };
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply(), reply_to(from_hex("01"), from_hex("0A")));
}

TEST_F(TransRecv, OrderlyClose_IsSuccessWithLengthZero) {
  connect_to({plc_test::close_orderly()});
  const int socket_fd = conn_.socket_fd;
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply_length_, 0);
  EXPECT_TRUE(reply_.holds_only(0xEE));
  EXPECT_EQ(take_output(), "");
  expect_kept(socket_fd);
}

TEST_F(TransRecv, Reset_FailsAndKeepsTheSocket) {
  connect_to({plc_test::reset_connection()});
  const int socket_fd = conn_.socket_fd;
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_EQ(reply_length_, kNoLength);
  EXPECT_EQ(take_output(), by_build("", "[PLC] guard: connection lost, error 104\r\n"));
  expect_kept_by_contract(socket_fd);
}

TEST_F(TransRecv, FailingSelect_PrintsAndCloses) {
  connect_to({plc_test::stay_silent()});
  const int socket_fd = conn_.socket_fd;
  wrapped_calls().instead_of_select = [](fd_set*, fd_set*) {
    errno = EINTR;
    return -1;
  };
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_EQ(take_output(), "--err--\r\n");
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "send", "select"}));
  expect_closed(socket_fd);
}

TEST_F(TransRecv, SocketNotReportedReadable_FailsAndKeepsTheSocket) {
  connect_to({plc_test::stay_silent()});
  const int socket_fd = conn_.socket_fd;
  wrapped_calls().instead_of_select = [](fd_set* readable, fd_set*) {
    FD_ZERO(readable);
    return 1;
  };
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_EQ(take_output(), by_build("", "--timeout--\r\n"));
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "send", "select"}));
  expect_kept_by_contract(socket_fd);
}

TEST_F(TransRecv, SocketThatSelectCannotTake_SendsThenFailsAsSelectWould) {
  connect_to({plc_test::stay_silent()});
  const plc_test::RaisedDescriptorLimit raised;
  const int high = FD_SETSIZE + 3;
  ASSERT_EQ(dup2(conn_.socket_fd, high), high);
  const int low = conn_.socket_fd;
  conn_.socket_fd = high;
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_EQ(take_output(), "--err--\r\n");
  EXPECT_EQ(wrapped_calls().exchange_calls, std::vector<std::string>{"send"}) << "select is never asked";
  expect_closed(high);
  EXPECT_TRUE(is_open_descriptor(low));
}

TEST_F(TransRecv, NumberOfAClosedSocket_IsNotUsedAgain) {
  connect_to({plc_test::stay_silent()});
  const int socket_fd = conn_.socket_fd;
  conn_.recv_timeout_s = 0;
  ASSERT_EQ(exchange(from_hex("01")), -1);
  const int other = dup2(STDERR_FILENO, socket_fd);  // another part of the host is given the number
  ASSERT_EQ(other, socket_fd);
  EXPECT_EQ(exchange(from_hex("02")), -1);
  EXPECT_EQ(captured([&] { return QuitSock(&conn_); }), -1);
  EXPECT_TRUE(is_open_descriptor(other));
  close(other);
}

TEST_F(TransRecv, Descriptors_DoNotGrowOverManyExchanges) {
  std::vector<PeerStep> script(50, answer(from_hex("0A")));
  connect_to(script);
  const int open_before = plc_test::count_open_descriptors();
  for (int i = 0; i < 50; ++i) ASSERT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
}

class QuitSockTest : public plc_test::ConnectionFixture {};

TEST_F(QuitSockTest, Socket_IsClosedAndMinusOneStored) {
  connect_to({});
  const int socket_fd = conn_.socket_fd;
  EXPECT_EQ(QuitSock(&conn_), -1);
  expect_closed(socket_fd);
  EXPECT_EQ(QuitSock(&conn_), -1);
}

}  // namespace
