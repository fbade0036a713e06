// Tests of the socket and time wrappers.
#include "plc_ethernet.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/select.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <vector>

#include "tests/support/descriptors.h"
#include "tests/support/loopback.h"
#include "tests/support/wrapped_calls.h"

namespace {

using plc_test::LoopbackSocket;
using plc_test::ScopedDescriptor;
using plc_test::wrapped_calls;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

sockaddr* as_sockaddr(sockaddr_in* address) { return reinterpret_cast<sockaddr*>(address); }

struct SocketPair {
  explicit SocketPair(int type = SOCK_STREAM) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, ends), 0);
    near.reset(ends[0]);
    far.reset(ends[1]);
  }
  ScopedDescriptor near;
  ScopedDescriptor far;
};

TEST(SocketWrappers, StreamRoundTrip_PassesThroughEveryCall) {
  const ScopedDescriptor server(ev_socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_GE(server.get(), 0);
  const int reuse = 1;
  ASSERT_EQ(ev_setsockopt(server.get(), SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse), 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(ev_bind(server.get(), as_sockaddr(&address), sizeof address), 0);
  socklen_t length = sizeof address;
  ASSERT_EQ(getsockname(server.get(), as_sockaddr(&address), &length), 0);
  ASSERT_EQ(ev_listen(server.get(), 1), 0);

  const ScopedDescriptor client(ev_socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_EQ(ev_connect(client.get(), as_sockaddr(&address), sizeof address), 0);
  sockaddr_in peer{};
  length = sizeof peer;
  const ScopedDescriptor accepted(ev_accept(server.get(), as_sockaddr(&peer), &length));
  ASSERT_GE(accepted.get(), 0);
  EXPECT_EQ(length, sizeof peer);
  EXPECT_EQ(peer.sin_addr.s_addr, htonl(INADDR_LOOPBACK));

  EXPECT_EQ(ev_send(client.get(), "hello", 5), 5);
  char text[8] = {};
  EXPECT_EQ(ev_recv(accepted.get(), text, 3), 3);
  EXPECT_STREQ(text, "hel");
  EXPECT_EQ(ev_recv(accepted.get(), text, sizeof text), 2);
  EXPECT_EQ(std::memcmp(text, "lo", 2), 0);
}

TEST(SocketWrappers, DatagramRoundTrip_PassesAddressesAndFlags) {
  const LoopbackSocket receiver(SOCK_DGRAM);
  const LoopbackSocket sender(SOCK_DGRAM);
  sockaddr_in to = receiver.address();
  EXPECT_EQ(ev_sendto(sender.fd(), "ping", 4, 0, as_sockaddr(&to), sizeof to), 4);
  char text[8] = {};
  sockaddr_in from{};
  socklen_t length = sizeof from;
  EXPECT_EQ(ev_recvfrom(receiver.fd(), text, sizeof text, MSG_PEEK, as_sockaddr(&from), &length), 4);
  EXPECT_EQ(from.sin_port, htons(sender.port()));
  EXPECT_EQ(ev_recvfrom(receiver.fd(), text, sizeof text, 0, nullptr, nullptr), 4);
  EXPECT_STREQ(text, "ping");
  EXPECT_EQ(ev_recvfrom(receiver.fd(), text, sizeof text, MSG_DONTWAIT, nullptr, nullptr), -1);
  EXPECT_EQ(errno, EAGAIN);
}

TEST(SocketWrappers, NoSocket_GivesTheSystemsErrorFromEveryCall) {
  char byte = 0;
  sockaddr_in address{};
  socklen_t length = sizeof address;
  const auto expect_bad_descriptor = [](ssize_t result) {
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EBADF);
    errno = 0;
  };
  expect_bad_descriptor(ev_recv(-1, &byte, 1));
  expect_bad_descriptor(ev_send(-1, &byte, 1));
  expect_bad_descriptor(ev_recvfrom(-1, &byte, 1, 0, as_sockaddr(&address), &length));
  expect_bad_descriptor(ev_sendto(-1, &byte, 1, 0, as_sockaddr(&address), sizeof address));
  expect_bad_descriptor(ev_connect(-1, as_sockaddr(&address), sizeof address));
  expect_bad_descriptor(ev_setsockopt(-1, SOL_SOCKET, SO_REUSEADDR, &length, sizeof length));
  expect_bad_descriptor(ev_bind(-1, as_sockaddr(&address), sizeof address));
  expect_bad_descriptor(ev_listen(-1, 1));
  expect_bad_descriptor(ev_accept(-1, as_sockaddr(&address), &length));
  expect_bad_descriptor(ev_close_handel(-1));
  expect_bad_descriptor(ev_closesocket(-1));
}

TEST(SocketWrappers, SocketsOfAnyKind_CloseInProgramsThatTheHostStarts) {
  const int types[] = {SOCK_STREAM, SOCK_DGRAM, SOCK_STREAM | SOCK_NONBLOCK};
  for (const int type : types) {
    const ScopedDescriptor opened(ev_socket(AF_INET, type, 0));
    EXPECT_EQ(fcntl(opened.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(opened.get(), F_GETFL) & O_NONBLOCK, type & SOCK_NONBLOCK);
  }
  const LoopbackSocket server(SOCK_STREAM, 1);
  const LoopbackSocket client(SOCK_STREAM);
  sockaddr_in to = server.address();
  ASSERT_EQ(ev_connect(client.fd(), as_sockaddr(&to), sizeof to), 0);
  const ScopedDescriptor accepted(ev_accept(server.fd(), nullptr, nullptr));
  EXPECT_EQ(fcntl(accepted.get(), F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(fcntl(accepted.get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST(SocketWrappers, UnknownType_GivesTheSystemsError) {
  EXPECT_EQ(ev_socket(AF_INET, 15, 0), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(SocketWrappers, UnknownDomain_GivesTheSystemsError) {
  EXPECT_EQ(ev_socket(-1, SOCK_STREAM, 0), -1);
  EXPECT_EQ(errno, EAFNOSUPPORT);
}

TEST(SocketWrappers, BothCloses_CloseTheDescriptor) {
  for (int (*const close_one)(int) : {ev_close_handel, ev_closesocket}) {
    const int socket_fd = ev_socket(AF_INET, SOCK_DGRAM, 0);
    ASSERT_GE(socket_fd, 0);
    EXPECT_EQ(close_one(socket_fd), 0);
    EXPECT_FALSE(plc_test::is_open_descriptor(socket_fd));
  }
}

TEST(SocketWrappers, SendFlags_AreZero) {
  // Without flags a send to a closed peer raises SIGPIPE.
  EXPECT_EXIT(
      {
        std::signal(SIGPIPE, SIG_DFL);
        SocketPair pair;
        pair.far.reset();
        ev_send(pair.near.get(), "x", 1);
        std::_Exit(1);
      },
      testing::KilledBySignal(SIGPIPE), "");
}

TEST(SocketWrappers, DottedText_ResolvesToItsAddress) {
  const hostent* const host = ev_gethostbyname("192.168.0.10");
  ASSERT_NE(host, nullptr);
  ASSERT_EQ(host->h_length, 4);
  const unsigned char expected[] = {192, 168, 0, 10};
  EXPECT_EQ(std::memcmp(host->h_addr_list[0], expected, 4), 0);
}

TEST(SocketWrappers, UnresolvedName_GivesNull) {
  wrapped_calls().reset();
  wrapped_calls().fail_resolving = true;
  EXPECT_EQ(ev_gethostbyname("192.168.0.10"), nullptr);
  EXPECT_EQ(wrapped_calls().failed_resolutions, 1);
  wrapped_calls().reset();
}

class TimeWrappers : public testing::Test {
 protected:
  void SetUp() override { wrapped_calls().reset(); }
  void TearDown() override { wrapped_calls().reset(); }
};

using EvSleep = TimeWrappers;
using EvSleepMs = TimeWrappers;
using EvTimeSet = TimeWrappers;

TEST_F(EvSleep, Microseconds_ArePassedThrough) {
  wrapped_calls().skip_pauses = true;
  EXPECT_EQ(ev_sleep(1234), 0);
  EXPECT_EQ(ev_sleep(0), 0);
  EXPECT_EQ(ev_sleep(5000000), 0);
  EXPECT_EQ(wrapped_calls().pauses_us, (std::vector<unsigned>{1234, 0, 5000000}));
}

TEST_F(EvSleepMs, Zero_ReturnsZeroWithoutSleeping) {
  EXPECT_EQ(ev_sleep_ms(0), 0);
  EXPECT_TRUE(wrapped_calls().pauses_us.empty());
}

TEST_F(EvSleepMs, Values_AreCappedAtOneSecond_D46) {
  wrapped_calls().skip_pauses = true;
  for (const uint32_t ms : {1u, 3u, 999u, 1000u, 1001u, 1500u, 0xFFFFFFFFu}) EXPECT_EQ(ev_sleep_ms(ms), 0);
  EXPECT_EQ(wrapped_calls().pauses_us, (std::vector<unsigned>{1000, 3000, 999000, 1000000, 1000000, 1000000, 1000000}));
}

TEST_F(EvSleepMs, FifteenHundred_SleepsOneSecond) {
  const auto start = steady_clock::now();
  EXPECT_EQ(ev_sleep_ms(1500), 0);
  EXPECT_GE(steady_clock::now() - start, milliseconds(1000));
  EXPECT_EQ(wrapped_calls().pauses_us, std::vector<unsigned>{1000000});
}

void expect_timeout(uint32_t mode, uint32_t seconds, uint32_t ms, timeval expected) {
  wrapped_calls().reset();
  wrapped_calls().skip_selects = true;
  const SocketPair pair;
  ConnContext conn{};
  conn.socket_fd = pair.near.get();
  conn.recv_timeout_s = seconds;
  conn.timeout_ms = ms;
  EXPECT_EQ(ev_time_set(&conn, mode), 0);
  ASSERT_EQ(wrapped_calls().select_timeouts.size(), 1u);
  EXPECT_EQ(wrapped_calls().select_timeouts[0].tv_sec, expected.tv_sec);
  EXPECT_EQ(wrapped_calls().select_timeouts[0].tv_usec, expected.tv_usec);
}

TEST_F(EvTimeSet, Mode0_WaitsWholeSecondsOfWord2) {
  expect_timeout(0, 5, 700, {5, 0});
  expect_timeout(0, 0, 700, {0, 0});
}

TEST_F(EvTimeSet, Mode0WithHugeSeconds_StaysAValidTimeout) {
  expect_timeout(0, 0x7FFFFFFF, 0, {0x7FFFFFFF, 0});
  expect_timeout(0, 0x80000000, 0, {0x7FFFFFFF, 0});
  expect_timeout(0, 0xFFFFFFFF, 0, {0x7FFFFFFF, 0});
}

TEST_F(EvTimeSet, Mode1_WaitsMillisecondsOfWord3) {
  expect_timeout(1, 5, 0, {0, 0});
  expect_timeout(1, 5, 700, {0, 700000});
  expect_timeout(1, 5, 2500, {2, 500000});
}

TEST_F(EvTimeSet, Mode1WithHugeMilliseconds_StaysAValidTimeout) { expect_timeout(1, 0, 0xFFFFFFFF, {4294967, 295000}); }

TEST_F(EvTimeSet, OtherModes_DoNotWait) {
  expect_timeout(2, 5, 700, {0, 0});
  expect_timeout(0xFFFFFFFF, 5, 700, {0, 0});
}

TEST_F(EvTimeSet, HugeTimeouts_AreAcceptedByTheSystem) {
  const SocketPair pair;
  ASSERT_EQ(ev_send(pair.far.get(), "x", 1), 1);
  ConnContext conn{};
  conn.socket_fd = pair.near.get();
  conn.recv_timeout_s = 0xFFFFFFFF;
  conn.timeout_ms = 0xFFFFFFFF;
  EXPECT_EQ(ev_time_set(&conn, 0), 1);
  EXPECT_EQ(ev_time_set(&conn, 1), 1);
}

TEST_F(EvTimeSet, ReadableSocket_GivesOneInEveryMode) {
  const SocketPair pair;
  ASSERT_EQ(ev_send(pair.far.get(), "x", 1), 1);
  ConnContext conn{};
  conn.socket_fd = pair.near.get();
  for (const uint32_t mode : {0u, 1u, 2u}) EXPECT_EQ(ev_time_set(&conn, mode), 1) << "mode " << mode;
}

TEST_F(EvTimeSet, SilentSocket_GivesZeroAfterTheTimeout) {
  const SocketPair pair;
  ConnContext conn{};
  conn.socket_fd = pair.near.get();
  conn.timeout_ms = 30;
  const auto start = steady_clock::now();
  EXPECT_EQ(ev_time_set(&conn, 1), 0);
  EXPECT_GE(steady_clock::now() - start, milliseconds(30));
}

TEST_F(EvTimeSet, ClosedDescriptor_GivesTheSystemsError) {
  ConnContext conn{};
  {
    const SocketPair pair;
    conn.socket_fd = pair.near.get();
  }
  EXPECT_EQ(ev_time_set(&conn, 0), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(EvTimeSet, DescriptorThatNoSetHolds_NeverReachesSelect) {
  for (const int32_t socket_fd : {-1, INT32_MIN, FD_SETSIZE, FD_SETSIZE + 1, INT32_MAX}) {
    ConnContext conn{};
    conn.socket_fd = socket_fd;
    errno = 0;
    EXPECT_EQ(ev_time_set(&conn, 0), -1) << socket_fd;
    EXPECT_EQ(errno, EBADF);
  }
  EXPECT_EQ(wrapped_calls().selects, 0);
}

TEST_F(EvTimeSet, HighestDescriptorOfASet_IsWaitedFor) {
  const SocketPair pair;
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  ASSERT_GE(limit.rlim_cur, static_cast<rlim_t>(FD_SETSIZE));
  const ScopedDescriptor highest(dup2(pair.near.get(), FD_SETSIZE - 1));
  ASSERT_EQ(highest.get(), FD_SETSIZE - 1);
  ASSERT_EQ(ev_send(pair.far.get(), "x", 1), 1);
  ConnContext conn{};
  conn.socket_fd = highest.get();
  EXPECT_EQ(ev_time_set(&conn, 0), 1);
  EXPECT_EQ(wrapped_calls().selects, 1);
}

}  // namespace
