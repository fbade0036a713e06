// Tests of the connect: its address, its options, its wait of 30 ms and each way in which it ends.
#include <gtest/gtest.h>

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>

#include "tests/driver/integration/connection_fixture.h"

namespace {

using plc_test::by_build;
using plc_test::Bytes;
using plc_test::capture_output;
using plc_test::from_hex;
using plc_test::is_open_descriptor;
using plc_test::kLoopbackAddress;
using plc_test::PeerStep;
using plc_test::ScriptedPeer;
using plc_test::to_hex;
using plc_test::wrapped_calls;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class SetupTcpComm : public plc_test::ConnectionFixture {};

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
  EXPECT_EQ(take_output(), std::string("server ip = 127.0.0.1\r\n") + by_build("", "[PLC] guard: connect refused\r\n"));
  const int socket_fd = conn_.socket_fd;
  EXPECT_EQ(socket_fd >= 0, by_build(true, false));
  EXPECT_EQ(exchange(from_hex("01")), -1);
  EXPECT_EQ(take_output(), "send error\n");
  EXPECT_EQ(conn_.socket_fd, -1);
  EXPECT_FALSE(is_open_descriptor(socket_fd));
}

TEST_F(SetupTcpComm, ConnectThatFailsAtOnce_CountsAsConnected_D16) {
  wrapped_calls().instead_of_connect = [](const sockaddr*, socklen_t) {
    errno = ENETUNREACH;
    return -1;
  };
  EXPECT_EQ(set_up(kLoopbackAddress, 5000), 0);
  EXPECT_EQ(wrapped_calls().selects, 0);
  EXPECT_EQ(take_output(),
            std::string("server ip = 127.0.0.1\r\n") + by_build("", "[PLC] guard: no route to the controller\r\n"));
  EXPECT_EQ(is_open_descriptor(conn_.socket_fd), by_build(true, false));
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
  EXPECT_EQ(capture.take(),
            std::string("server ip = 127.0.0.1\r\n") + by_build("", "[PLC] guard: connect failed, error 9\r\n"));
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
  const plc_test::LoopbackSocket listener(SOCK_STREAM, 1);
  plc_test::CapturedOutput capture;
  int result = 0;
  int open_during = 0;
  {
    const plc_test::TakenLowDescriptors taken;
    const int open_before = plc_test::count_open_descriptors();
    result = SetupTCPComm(&conn_, kLoopbackAddress, listener.port());
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

}  // namespace
