// Tests of the two connection set-ups that the driver itself does not use.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "plc_ethernet.h"
#include "tests/support/captured_output.h"
#include "tests/support/descriptors.h"
#include "tests/support/loopback.h"
#include "tests/support/wrapped_calls.h"

namespace {

using plc_test::capture_output;
using plc_test::count_open_descriptors;
using plc_test::is_open_descriptor;
using plc_test::kLoopbackAddress;
using plc_test::LoopbackSocket;
using plc_test::ScopedDescriptor;
using plc_test::wrapped_calls;

constexpr uint8_t kStreamKind = 0x55;
constexpr uint8_t kOtherKind = 0x54;
constexpr int32_t kUntouchedFd = -77;

CommSettings make_settings(uint32_t ip_address, uint16_t port, uint8_t kind = 0) {
  CommSettings settings{};
  settings.ip_address = ip_address;
  settings.tcp_port = port;
  settings.socket_kind = kind;
  return settings;
}

ConnContext make_context(uint32_t delay_ms) {
  ConnContext conn{};
  conn.socket_fd = kUntouchedFd;
  conn.delay_ms = delay_ms;
  return conn;
}

int read_int_option(int socket_fd, int option) {
  int value = -1;
  socklen_t length = sizeof value;
  EXPECT_EQ(getsockopt(socket_fd, SOL_SOCKET, option, &value, &length), 0);
  return value;
}

timeval read_send_timeout(int socket_fd) {
  timeval timeout{-1, -1};
  socklen_t length = sizeof timeout;
  EXPECT_EQ(getsockopt(socket_fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, &length), 0);
  return timeout;
}

class AlternativeSetup : public testing::Test {
 protected:
  void SetUp() override {
    wrapped_calls().reset();
    open_before_ = count_open_descriptors();
  }
  void TearDown() override {
    wrapped_calls().reset();
    EXPECT_EQ(count_open_descriptors(), open_before_);
  }

 private:
  int open_before_ = 0;
};

using InitUdpComm = AlternativeSetup;
using CommunicationSetTest = AlternativeSetup;

TEST_F(InitUdpComm, ValidSettings_GiveADatagramSocketAndTheAddress) {
  const CommSettings settings = make_settings(0xC0A8000A, 0x1234);
  int32_t socket_fd = kUntouchedFd;
  sockaddr_in address;
  std::memset(&address, 0xEE, sizeof address);
  int result = -1;
  EXPECT_EQ(capture_output([&] { result = init_udp_comm(&settings, &socket_fd, &address); }), "");
  const ScopedDescriptor owned(socket_fd);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(read_int_option(socket_fd, SO_TYPE), SOCK_DGRAM);
  EXPECT_EQ(address.sin_family, AF_INET);
  const unsigned char port[] = {0x12, 0x34};
  EXPECT_EQ(std::memcmp(&address.sin_port, port, 2), 0);
  const unsigned char ip[] = {192, 168, 0, 10};
  EXPECT_EQ(std::memcmp(&address.sin_addr, ip, 4), 0);
}

TEST_F(InitUdpComm, EveryByteOfTheAddress_StandsInItsPlace) {
  for (const uint32_t ip : {0x00000000u, 0x01020304u, 0x7F000001u, 0x80000001u, 0xFFFFFFFFu}) {
    const CommSettings settings = make_settings(ip, 8500);
    int32_t socket_fd = kUntouchedFd;
    sockaddr_in address{};
    EXPECT_EQ(init_udp_comm(&settings, &socket_fd, &address), 0);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr), ip);
    EXPECT_EQ(close(socket_fd), 0);
  }
}

TEST_F(InitUdpComm, FailedResolution_PrintsAndStillStoresTheSocketAndReturns0_D48) {
  wrapped_calls().fail_resolving = true;
  const CommSettings settings = make_settings(kLoopbackAddress, 8500);
  int32_t socket_fd = kUntouchedFd;
  sockaddr_in address;
  std::memset(&address, 0xEE, sizeof address);
  const sockaddr_in before = address;
  int result = -1;
  EXPECT_EQ(capture_output([&] { result = init_udp_comm(&settings, &socket_fd, &address); }),
            "error resolving local host\r\n");
  const ScopedDescriptor owned(socket_fd);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(wrapped_calls().failed_resolutions, 1);
  EXPECT_EQ(read_int_option(socket_fd, SO_TYPE), SOCK_DGRAM);
  EXPECT_EQ(std::memcmp(&address, &before, sizeof address), 0);
}

TEST_F(InitUdpComm, NoDescriptorLeft_PrintsAndStoresNothing) {
  const CommSettings settings = make_settings(kLoopbackAddress, 8500);
  int32_t socket_fd = kUntouchedFd;
  sockaddr_in address;
  std::memset(&address, 0xEE, sizeof address);
  const sockaddr_in before = address;
  int result = 0;
  EXPECT_EQ(capture_output([&] {
              const plc_test::ExhaustedDescriptors exhausted;
              result = init_udp_comm(&settings, &socket_fd, &address);
            }),
            "socket error\r\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(socket_fd, kUntouchedFd);
  EXPECT_EQ(std::memcmp(&address, &before, sizeof address), 0);
}

TEST_F(CommunicationSetTest, KindU_ConnectsAStreamSocket_D47) {
  const LoopbackSocket listener(SOCK_STREAM, 1);
  const CommSettings settings = make_settings(kLoopbackAddress, listener.port(), kStreamKind);
  ConnContext conn = make_context(0);
  int result = -1;
  EXPECT_EQ(capture_output([&] { result = CommunicationSet(&settings, &conn); }), "");
  const ScopedDescriptor owned(conn.socket_fd);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(read_int_option(conn.socket_fd, SO_TYPE), SOCK_STREAM);
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  ASSERT_EQ(getpeername(conn.socket_fd, reinterpret_cast<sockaddr*>(&peer), &length), 0);
  EXPECT_EQ(ntohs(peer.sin_port), listener.port());
  EXPECT_EQ(read_int_option(conn.socket_fd, SO_REUSEADDR), 1);
}

TEST_F(CommunicationSetTest, OtherKinds_ConnectADatagramSocket) {
  const LoopbackSocket receiver(SOCK_DGRAM);
  for (const uint8_t kind : {kOtherKind, uint8_t{0}, uint8_t{'u'}, uint8_t{0xFF}}) {
    const CommSettings settings = make_settings(kLoopbackAddress, receiver.port(), kind);
    ConnContext conn = make_context(0);
    EXPECT_EQ(CommunicationSet(&settings, &conn), 0);
    const ScopedDescriptor owned(conn.socket_fd);
    EXPECT_EQ(read_int_option(conn.socket_fd, SO_TYPE), SOCK_DGRAM) << int{kind};
    EXPECT_EQ(read_int_option(conn.socket_fd, SO_REUSEADDR), 1);
  }
}

void expect_send_timeout(uint32_t delay_ms, long seconds) {
  const LoopbackSocket listener(SOCK_STREAM, 1);
  const CommSettings settings = make_settings(kLoopbackAddress, listener.port(), kStreamKind);
  ConnContext conn = make_context(delay_ms);
  EXPECT_EQ(CommunicationSet(&settings, &conn), 0);
  const ScopedDescriptor owned(conn.socket_fd);
  EXPECT_EQ(read_send_timeout(conn.socket_fd).tv_sec, seconds) << delay_ms;
  EXPECT_EQ(read_send_timeout(conn.socket_fd).tv_usec, 0) << delay_ms;
}

TEST_F(CommunicationSetTest, Delay27_GivesASendTimeoutOf10Seconds) { expect_send_timeout(27, 10); }

TEST_F(CommunicationSetTest, Delay0_GivesASendTimeoutOf3Seconds) { expect_send_timeout(0, 3); }

TEST_F(CommunicationSetTest, LargestDelays_KeepTheirLastDigit) {
  expect_send_timeout(9, 12);
  expect_send_timeout(0xFFFFFFFF, 8);
}

TEST_F(CommunicationSetTest, RefusedConnect_PrintsTheAddressAndLeavesTheRecordAlone) {
  const LoopbackSocket bound_only(SOCK_STREAM);
  const CommSettings settings = make_settings(kLoopbackAddress, bound_only.port(), kStreamKind);
  ConnContext conn = make_context(0);
  const int before = count_open_descriptors();
  int result = 0;
  EXPECT_EQ(capture_output([&] { result = CommunicationSet(&settings, &conn); }), "connect to 127.0.0.1 failed\r\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(conn.socket_fd, kUntouchedFd);
  EXPECT_EQ(count_open_descriptors(), before);
}

TEST_F(CommunicationSetTest, BroadcastAddress_IsRefusedAndPrintedInDottedForm) {
  const CommSettings settings = make_settings(0xFFFFFFFF, 9, kOtherKind);
  ConnContext conn = make_context(0);
  int result = 0;
  EXPECT_EQ(capture_output([&] { result = CommunicationSet(&settings, &conn); }),
            "connect to 255.255.255.255 failed\r\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(conn.socket_fd, kUntouchedFd);
}

TEST_F(CommunicationSetTest, FailedResolution_PrintsAndCreatesNoSocket) {
  wrapped_calls().fail_resolving = true;
  const CommSettings settings = make_settings(kLoopbackAddress, 9, kStreamKind);
  ConnContext conn = make_context(0);
  int result = 0;
  EXPECT_EQ(capture_output([&] {
              // Resolving comes first: with no socket to be had its message is the only one.
              const plc_test::ExhaustedDescriptors exhausted;
              result = CommunicationSet(&settings, &conn);
            }),
            "error resolving local host\r\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(conn.socket_fd, kUntouchedFd);
  EXPECT_EQ(wrapped_calls().failed_resolutions, 1);
}

TEST_F(CommunicationSetTest, NoDescriptorLeft_PrintsSocketError) {
  // The first resolution of a process reads files; this one must not need a descriptor of its own.
  ASSERT_NE(ev_gethostbyname("127.0.0.1"), nullptr);
  const CommSettings settings = make_settings(kLoopbackAddress, 9, kStreamKind);
  ConnContext conn = make_context(0);
  int result = 0;
  EXPECT_EQ(capture_output([&] {
              const plc_test::ExhaustedDescriptors exhausted;
              result = CommunicationSet(&settings, &conn);
            }),
            "socket error\r\n");
  EXPECT_EQ(result, -1);
  EXPECT_EQ(conn.socket_fd, kUntouchedFd);
}

TEST_F(CommunicationSetTest, OtherWordsOfTheRecord_StayAsTheyAre) {
  const LoopbackSocket receiver(SOCK_DGRAM);
  const CommSettings settings = make_settings(kLoopbackAddress, receiver.port());
  ConnContext conn = {kUntouchedFd, 0x11111111, 0x22222222, 0x33333333, 0x44444444};
  EXPECT_EQ(CommunicationSet(&settings, &conn), 0);
  const ScopedDescriptor owned(conn.socket_fd);
  EXPECT_EQ(conn.host_word, 0x11111111u);
  EXPECT_EQ(conn.recv_timeout_s, 0x22222222u);
  EXPECT_EQ(conn.timeout_ms, 0x33333333u);
  EXPECT_EQ(conn.delay_ms, 0x44444444u);
}

TEST_F(CommunicationSetTest, SecondName_DoesTheSame) {
  const LoopbackSocket listener(SOCK_STREAM, 1);
  const CommSettings settings = make_settings(kLoopbackAddress, listener.port(), kStreamKind);
  ConnContext conn = make_context(27);
  EXPECT_EQ(ReCommunicationSet(&settings, &conn), 0);
  const ScopedDescriptor owned(conn.socket_fd);
  EXPECT_EQ(read_int_option(conn.socket_fd, SO_TYPE), SOCK_STREAM);
  EXPECT_EQ(read_send_timeout(conn.socket_fd).tv_sec, 10);

  const LoopbackSocket bound_only(SOCK_STREAM);
  const CommSettings refused = make_settings(kLoopbackAddress, bound_only.port(), kStreamKind);
  ConnContext failed = make_context(0);
  int result = 0;
  EXPECT_EQ(capture_output([&] { result = ReCommunicationSet(&refused, &failed); }), "connect to 127.0.0.1 failed\r\n");
  EXPECT_EQ(result, -1);
}

}  // namespace
