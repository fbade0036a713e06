// Tests of the connect, the drain, the send, one exchange and the close.
#include "plc_driver/protocol/connection.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "plc_driver/driver_state.h"
#include "support/descriptors.h"
#include "support/driver_fixture.h"
#include "support/guarded_buffer.h"

namespace {

using plc_test::answer;
using plc_test::Bytes;
using plc_test::capture_output;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::is_open_descriptor;
using plc_test::kLoopbackAddress;
using plc_test::PeerStep;
using plc_test::ScriptedPeer;
using plc_test::to_hex;
using plc_test::wait_for_end;
using plc_test::wait_for_input;
using plc_test::wrapped_calls;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr size_t kReplyBytes = 4096;
constexpr int32_t kNoLength = -77;

class ConnectionTest : public plc_test::DriverFixture {
 protected:
  int set_up(uint32_t ip, int port) {
    return captured([&] { return SetupTCPComm(&conn_, ip, port); });
  }

  // Connects to a peer with this script.
  void connect_to(std::vector<PeerStep> script) {
    peer_ = std::make_unique<ScriptedPeer>(std::move(script));
    ASSERT_EQ(set_up(kLoopbackAddress, peer_->port()), 0);
    ASSERT_TRUE(peer_->wait_for_connections(1));
    take_output();
    wrapped_calls().reset();
  }

  int exchange(const Bytes& request) {
    reply_length_ = kNoLength;
    return captured([&] {
      return TransRecvSockBuff(request.data(), static_cast<uint32_t>(request.size()), reply_.data(), &reply_length_,
                               &conn_);
    });
  }

  Bytes reply() const { return Bytes(reply_.data(), reply_.data() + reply_length_); }

  // Stale input of this many bytes, each the low byte of its place, is waiting when this returns.
  void queue_stale(size_t count) {
    Bytes stale(count);
    for (size_t i = 0; i < count; ++i) {
      stale[i] = static_cast<uint8_t>(i);
    }
    peer_->send_now(stale);
    ASSERT_TRUE(wait_for_input(conn_.socket_fd, count));
  }

  // Has the reply's receive wait until this many bytes are there.
  void receive_once_there_are(size_t count) {
    wrapped_calls().before_recv = [this, count] {
      if (wrapped_calls().exchange_calls.size() > 3) {  // the drain's select and perhaps its recv, send, select
        EXPECT_TRUE(wait_for_input(conn_.socket_fd, count));
      }
    };
  }

  void expect_closed(int socket_fd) const {
    EXPECT_EQ(conn_.socket_fd, -1);
    EXPECT_FALSE(is_open_descriptor(socket_fd));
  }

  void expect_kept(int socket_fd) const {
    EXPECT_EQ(conn_.socket_fd, socket_fd);
    EXPECT_TRUE(is_open_descriptor(socket_fd));
  }

  GuardedBuffer reply_{kReplyBytes, 0xEE};
  int32_t reply_length_ = kNoLength;
};

class SetupTcpComm : public ConnectionTest {};

TEST_F(SetupTcpComm, Address_IsPrintedDotted) {
  wrapped_calls().instead_of_connect = [](const sockaddr*, socklen_t) { return 0; };
  EXPECT_EQ(set_up(0x0A000001, 5000), 0);
  EXPECT_EQ(take_output(), "server ip = 10.0.0.1\r\n");
  EXPECT_EQ(set_up(0xC0A8000A, 5000), 0);
  EXPECT_EQ(take_output(), "server ip = 192.168.0.10\r\n");
  EXPECT_EQ(set_up(0xFFFFFFFF, 5000), 0);
  EXPECT_EQ(take_output(), "server ip = 255.255.255.255\r\n");
  EXPECT_EQ(set_up(0, 5000), 0);
  EXPECT_EQ(take_output(), "server ip = 0.0.0.0\r\n");
}

// Family, port and address as the connect is given them.
std::string connected_address(uint32_t ip, int port) {
  std::string text;
  wrapped_calls().instead_of_connect = [&](const sockaddr* address, socklen_t length) {
    EXPECT_EQ(length, 16U);
    EXPECT_EQ(address->sa_family, AF_INET);
    Bytes bytes(length - 2);
    std::memcpy(bytes.data(), reinterpret_cast<const uint8_t*>(address) + 2, bytes.size());
    text = to_hex(bytes);
    return 0;
  };
  ConnContext conn{};
  capture_output([&] { EXPECT_EQ(SetupTCPComm(&conn, ip, port), 0); });
  return text;
}

TEST_F(SetupTcpComm, PortAndAddress_TravelInNetworkOrder) {
  EXPECT_EQ(connected_address(0x0A000001, 5000), "13 88 0A 00 00 01 00 00 00 00 00 00 00 00");
  EXPECT_EQ(connected_address(0xC0A8000A, 1), "00 01 C0 A8 00 0A 00 00 00 00 00 00 00 00");
}

TEST_F(SetupTcpComm, PortAbove32767_TravelsAlsoWhenItComesAsANegativeNumber) {
  EXPECT_EQ(connected_address(0x0A000001, static_cast<int16_t>(50000)), "C3 50 0A 00 00 01 00 00 00 00 00 00 00 00");
  EXPECT_EQ(connected_address(0x0A000001, 65535), "FF FF 0A 00 00 01 00 00 00 00 00 00 00 00");
}

TEST_F(SetupTcpComm, Connected_StoresABlockingSocketWithItsOptions) {
  peer_ = std::make_unique<ScriptedPeer>(std::vector<PeerStep>{});
  ASSERT_EQ(set_up(kLoopbackAddress, peer_->port()), 0);
  ASSERT_GE(conn_.socket_fd, 0);
  EXPECT_EQ(fcntl(conn_.socket_fd, F_GETFL) & O_NONBLOCK, 0);

  linger lingering{};
  socklen_t length = sizeof lingering;
  ASSERT_EQ(getsockopt(conn_.socket_fd, SOL_SOCKET, SO_LINGER, &lingering, &length), 0);
  EXPECT_EQ(lingering.l_onoff, 1);
  EXPECT_EQ(lingering.l_linger, 0);

  timeval send_timeout{};
  length = sizeof send_timeout;
  ASSERT_EQ(getsockopt(conn_.socket_fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, &length), 0);
  EXPECT_EQ(send_timeout.tv_sec, 0);
  EXPECT_GE(send_timeout.tv_usec, 50000);
  EXPECT_LE(send_timeout.tv_usec, 60000) << "the system's clock ticks rounded up";

  int reuse = 0;
  length = sizeof reuse;
  ASSERT_EQ(getsockopt(conn_.socket_fd, SOL_SOCKET, SO_REUSEADDR, &reuse, &length), 0);
  EXPECT_NE(reuse, 0);
}

TEST_F(SetupTcpComm, ConnectUnderWay_IsWaitedForOnceWith30Ms) {
  connect_to({});
  EXPECT_EQ(wrapped_calls().selects, 0) << "reset by the fixture";
  ASSERT_EQ(set_up(kLoopbackAddress, peer_->port()), 0);
  ASSERT_EQ(wrapped_calls().selects, 1);
  EXPECT_EQ(wrapped_calls().select_timeouts[0].tv_sec, 0);
  EXPECT_EQ(wrapped_calls().select_timeouts[0].tv_usec, 30000);
}

TEST_F(SetupTcpComm, ControllerThatDoesNotAcceptWithin30Ms_TimesOutAndIsClosed_D15) {
  const plc_test::FullBacklog held_back;
  conn_.socket_fd = -5;
  const int open_before = plc_test::count_open_descriptors();
  const auto begin = steady_clock::now();
  EXPECT_EQ(set_up(kLoopbackAddress, held_back.port()), -1);
  const auto elapsed = steady_clock::now() - begin;
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\nselect time out \r\n");
  EXPECT_GE(elapsed, milliseconds(30));
  EXPECT_LT(elapsed, milliseconds(900)) << "not until the system sends its second request to connect";
  EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
  EXPECT_EQ(conn_.socket_fd, -5) << "nothing is stored";
}

TEST_F(SetupTcpComm, RefusedConnect_CountsAsConnected_D16) {
  uint16_t port = 0;
  {
    const plc_test::LoopbackSocket nobody_listens(SOCK_STREAM, 1);
    port = nobody_listens.port();
  }
  EXPECT_EQ(set_up(kLoopbackAddress, port), 0);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n");
  ASSERT_GE(conn_.socket_fd, 0);
  const int socket_fd = conn_.socket_fd;
  signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(exchange(from_hex("01")), -1);
  signal(SIGPIPE, SIG_DFL);
  EXPECT_EQ(take_output(), "send error\n");
  expect_closed(socket_fd);
}

TEST_F(SetupTcpComm, ConnectThatFailsAtOnce_CountsAsConnected_D16) {
  wrapped_calls().instead_of_connect = [](const sockaddr*, socklen_t) {
    errno = ENETUNREACH;
    return -1;
  };
  EXPECT_EQ(set_up(kLoopbackAddress, 5000), 0);
  EXPECT_EQ(wrapped_calls().selects, 0);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\n");
  EXPECT_TRUE(is_open_descriptor(conn_.socket_fd));
}

TEST_F(SetupTcpComm, ConnectThatSucceedsAtOnce_IsNotWaitedFor) {
  wrapped_calls().instead_of_connect = [](const sockaddr*, socklen_t) { return 0; };
  EXPECT_EQ(set_up(kLoopbackAddress, 5000), 0);
  EXPECT_EQ(wrapped_calls().selects, 0);
  EXPECT_TRUE(is_open_descriptor(conn_.socket_fd));
}

TEST_F(SetupTcpComm, NoSocketToBeHad_CountsAsConnectedWithoutOne) {
  int result = -9;
  plc_test::CapturedOutput capture;
  {
    const plc_test::ExhaustedDescriptors none_left;
    result = SetupTCPComm(&conn_, kLoopbackAddress, 5000);
  }
  EXPECT_EQ(capture.take(), "server ip = 127.0.0.1\r\n");
  EXPECT_EQ(result, 0);
  EXPECT_EQ(conn_.socket_fd, -1);
}

// The wait for the connect with a select that yields this.
struct ConnectWait {
  std::function<int(fd_set*, fd_set*)> select;
  int result;
  const char* line;
};

TEST_F(SetupTcpComm, ConnectWait_EndsAsSelectSays) {
  const ConnectWait waits[] = {
      {[](fd_set*, fd_set*) { return -1; }, -1, "select error\r\n"},
      {[](fd_set*, fd_set*) { return 0; }, -1, "select time out \r\n"},
      {[](fd_set* readable, fd_set* writable) {
         FD_ZERO(readable);
         FD_ZERO(writable);
         return 1;
       },
       0, ""},
      {[](fd_set* readable, fd_set*) {
         FD_ZERO(readable);
         return 1;
       },
       0, ""},
      {[](fd_set*, fd_set* writable) {
         FD_ZERO(writable);
         return 1;
       },
       0, ""},
  };
  peer_ = std::make_unique<ScriptedPeer>(std::vector<PeerStep>{});
  const int open_before = plc_test::count_open_descriptors();
  for (const ConnectWait& wait : waits) {
    wrapped_calls().reset();
    wrapped_calls().instead_of_connect = [](const sockaddr*, socklen_t) {
      errno = EINPROGRESS;
      return -1;
    };
    wrapped_calls().instead_of_select = wait.select;
    conn_.socket_fd = -5;
    EXPECT_EQ(set_up(kLoopbackAddress, peer_->port()), wait.result);
    EXPECT_EQ(take_output(), std::string("server ip = 127.0.0.1\r\n") + wait.line);
    EXPECT_EQ(wrapped_calls().selects, 1);
    if (wait.result == 0) {
      EXPECT_TRUE(is_open_descriptor(conn_.socket_fd));
      captured([&] { return QuitSock(&conn_); });
    } else {
      EXPECT_EQ(conn_.socket_fd, -5);
    }
    EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
  }
}

TEST_F(SetupTcpComm, PendingErrorThatCannotBeAskedFor_FailsTheConnect) {
  peer_ = std::make_unique<ScriptedPeer>(std::vector<PeerStep>{});
  const int open_before = plc_test::count_open_descriptors();
  wrapped_calls().fail_options = true;
  wrapped_calls().instead_of_connect = [](const sockaddr*, socklen_t) {
    errno = EINPROGRESS;
    return -1;
  };
  wrapped_calls().instead_of_select = [](fd_set*, fd_set*) { return 1; };
  EXPECT_EQ(set_up(kLoopbackAddress, peer_->port()), -1);
  EXPECT_EQ(wrapped_calls().failed_options, 1);
  EXPECT_EQ(take_output(), "server ip = 127.0.0.1\r\ngetsockopt error\r\n");
  EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
}

TEST_F(SetupTcpComm, SocketThatSelectCannotTake_CountsAsAFailingSelect) {
  peer_ = std::make_unique<ScriptedPeer>(std::vector<PeerStep>{});
  plc_test::CapturedOutput capture;
  int result = 0;
  int open_during = 0;
  {
    const plc_test::TakenLowDescriptors taken;
    const int open_before = plc_test::count_open_descriptors();
    result = SetupTCPComm(&conn_, kLoopbackAddress, peer_->port());
    open_during = plc_test::count_open_descriptors() - open_before;
  }
  EXPECT_EQ(capture.take(), "server ip = 127.0.0.1\r\nselect error\r\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(wrapped_calls().selects, 0);
  EXPECT_EQ(open_during, 0);
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(SetupTcpComm, EarlierSocket_IsNotClosed) {
  connect_to({});
  const int first = conn_.socket_fd;
  ASSERT_EQ(set_up(kLoopbackAddress, peer_->port()), 0);
  EXPECT_NE(conn_.socket_fd, first);
  EXPECT_TRUE(is_open_descriptor(first));
}

class EmptyBufferTest : public ConnectionTest {};

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
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 100);
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
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), -1);
  wrapped_calls().instead_of_select = [](fd_set* readable, fd_set*) {
    FD_ZERO(readable);
    return 1;
  };
  EXPECT_EQ(EmptyBuffer(conn_.socket_fd), 0);
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "select"})) << "no receive";
}

TEST_F(EmptyBufferTest, DescriptorThatSelectCannotTake_GivesMinusOneWithoutAsking) {
  EXPECT_EQ(EmptyBuffer(-1), -1);
  EXPECT_EQ(EmptyBuffer(FD_SETSIZE), -1);
  EXPECT_EQ(EmptyBuffer(INT32_MAX), -1);
  EXPECT_EQ(EmptyBuffer(INT32_MIN), -1);
  EXPECT_EQ(wrapped_calls().selects, 0);
}

class SendE : public ConnectionTest {
 protected:
  int send_bytes(const Bytes& bytes) {
    return captured([&] { return send_e(bytes.data(), static_cast<uint32_t>(bytes.size()), &conn_); });
  }
};

TEST_F(SendE, Bytes_AreSentBehindADrainAndCounted) {
  connect_to({answer(from_hex("55"))});
  queue_stale(10);
  EXPECT_EQ(send_bytes(from_hex("01 02 03")), 3);
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "recv", "send"}));
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
  for (int tries = 0; tries < 100 && last >= 0; ++tries) {
    last = send_bytes(more_than_fits);
  }
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

class TransRecv : public ConnectionTest {};

TEST_F(TransRecv, RequestAndReply_TakeFourCalls) {
  connect_to({answer(from_hex("0A 0B 0C"))});
  EXPECT_EQ(exchange(from_hex("01 02")), 0);
  EXPECT_EQ(reply(), from_hex("0A 0B 0C"));
  EXPECT_EQ(reply_[3], 0xEE);
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
  connect_to({answer(from_hex("0A 0B"))});
  queue_stale(512);
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply(), from_hex("0A 0B"));
}

TEST_F(TransRecv, SixHundredStaleBytes_LeaveTheLast88InFrontOfTheReply_D17) {
  connect_to({answer(from_hex("AA BB CC DD"))});
  queue_stale(600);
  receive_once_there_are(88 + 4);
  EXPECT_EQ(exchange(from_hex("01")), 0);
  ASSERT_EQ(reply_length_, 92);
  for (size_t i = 0; i < 88; ++i) {
    EXPECT_EQ(reply_[i], static_cast<uint8_t>(512 + i)) << i;
  }
  EXPECT_EQ(reply_[88], 0xAA);
  EXPECT_EQ(reply_[91], 0xDD);
}

TEST_F(TransRecv, ReplyOf5000Bytes_YieldsTheFirst4096AndTheNextDrainTakes512OfTheRest_D17) {
  Bytes large(5000);
  for (size_t i = 0; i < large.size(); ++i) {
    large[i] = static_cast<uint8_t>(i >> 4);
  }
  connect_to({answer(large), answer(from_hex("AA BB"))});
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
  connect_to({answer(Bytes(4096 + 512, 0x77)), answer(from_hex("AA BB"))});
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
  connect_to({answer(from_hex("0A"))});
  conn_.recv_timeout_s = 0;
  wrapped_calls().before_select = [this] {
    if (wrapped_calls().selects == 2) {
      EXPECT_TRUE(wait_for_input(conn_.socket_fd, 1));
    }
  };
  EXPECT_EQ(exchange(from_hex("01")), 0);
  EXPECT_EQ(reply(), from_hex("0A"));
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
  EXPECT_EQ(take_output(), "");
  expect_kept(socket_fd);
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
  EXPECT_EQ(take_output(), "");
  EXPECT_EQ(wrapped_calls().exchange_calls, (std::vector<std::string>{"select", "send", "select"}));
  expect_kept(socket_fd);
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
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(exchange(from_hex("01")), 0);
  }
  EXPECT_EQ(plc_test::count_open_descriptors(), open_before);
}

class QuitSockTest : public ConnectionTest {};

TEST_F(QuitSockTest, Socket_IsClosedAndMinusOneStored) {
  connect_to({});
  const int socket_fd = conn_.socket_fd;
  EXPECT_EQ(QuitSock(&conn_), -1);
  expect_closed(socket_fd);
  EXPECT_EQ(QuitSock(&conn_), -1);
}

}  // namespace
