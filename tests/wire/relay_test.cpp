// Tests of the recording relay between two sockets of the test.
#include "wire/relay.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>

#include "tests/support/loopback.h"
#include "tests/wire/trace_fixture.h"

namespace {

using namespace trace_test;
using plc_test::kLoopbackAddress;
using plc_test::LoopbackSocket;
using plc_test::ScopedDescriptor;
using wire_trace::Reach;
using wire_trace::RecordingRelay;

constexpr int kPatienceMs = 10000;
constexpr size_t kBesideBytes = 128;  // that an event or a connection counts for beside its bytes

bool wait_readable(int descriptor) {
  pollfd readable{descriptor, POLLIN, 0};
  return poll(&readable, 1, kPatienceMs) == 1;
}

// What one receive brings; empty at the end, "reset" as one byte of 0xEE for a reset.
Bytes receive(int descriptor) {
  Bytes bytes(4096);
  if (!wait_readable(descriptor)) return from_hex("EE EE");
  const ssize_t got = recv(descriptor, bytes.data(), bytes.size(), 0);
  if (got < 0) return from_hex("EE");
  bytes.resize(static_cast<size_t>(got));
  return bytes;
}

void send_all(int descriptor, const Bytes& bytes) {
  ASSERT_EQ(send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

int connect_to(uint16_t port) {
  const Reach reach = wire_trace::reach_controller(kLoopbackAddress, port, kPatienceMs);
  EXPECT_EQ(reach.problem, "");
  return reach.descriptor;
}

class RelayTest : public testing::Test {
 protected:
  explicit RelayTest(size_t most_bytes = RecordingRelay::kMostRecordedBytes)
      : listener_(SOCK_STREAM, 4),
        relay_(kLoopbackAddress, listener_.port(), connect_to(listener_.port()), most_bytes),
        controller_(accept(listener_.fd(), nullptr, nullptr)),
        host_(connect_to(relay_.port())) {}

  // Waits until the recording holds so many events.
  std::vector<TrafficEvent> events(size_t count) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    std::vector<TrafficEvent> found;
    while (found.size() < count && std::chrono::steady_clock::now() < end) {
      relay_.wait_until_quiet(1, 1);
      const Recording recording = relay_.recording();
      if (!recording.connections.empty()) found = recording.connections[0].events;
    }
    return found;
  }

  LoopbackSocket listener_;
  RecordingRelay relay_;
  ScopedDescriptor controller_;
  ScopedDescriptor host_;
};

TEST_F(RelayTest, BytesOfBothSides_ArePassedOnAndRecorded) {
  send_all(host_.get(), from_hex(kResolveD));
  EXPECT_EQ(receive(controller_.get()), from_hex(kResolveD));
  send_all(controller_.get(), from_hex(kResolveReply));
  EXPECT_EQ(receive(host_.get()), from_hex(kResolveReply));
  const std::vector<TrafficEvent> recorded = events(2);
  ASSERT_EQ(recorded.size(), 2U);
  EXPECT_TRUE(recorded[0].from_host);
  EXPECT_EQ(recorded[0].bytes, from_hex(kResolveD));
  EXPECT_FALSE(recorded[1].from_host);
  EXPECT_LE(recorded[0].time_ns, recorded[1].time_ns);
}

TEST_F(RelayTest, EndOfTheController_ReachesTheHostAsAnEnd) {
  controller_.reset();
  EXPECT_EQ(receive(host_.get()), Bytes());
  EXPECT_EQ(events(1).at(0).kind, TrafficEvent::Kind::kFinished);
}

TEST_F(RelayTest, ResetOfTheController_ReachesTheHostAsAReset) {
  const linger at_once{1, 0};
  setsockopt(controller_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  controller_.reset();
  EXPECT_EQ(receive(host_.get()), from_hex("EE"));
  EXPECT_EQ(events(1).at(0).kind, TrafficEvent::Kind::kReset);
}

TEST_F(RelayTest, EndOfTheHost_ReachesTheController) {
  host_.reset();
  EXPECT_EQ(receive(controller_.get()), Bytes());
  EXPECT_TRUE(events(1).at(0).from_host);
}

TEST_F(RelayTest, SecondConnectionOfTheHost_GetsOneOfItsOwn) {
  const ScopedDescriptor second(connect_to(relay_.port()));
  ASSERT_TRUE(wait_readable(listener_.fd()));
  const ScopedDescriptor other(accept(listener_.fd(), nullptr, nullptr));
  send_all(second.get(), from_hex("01 02"));
  EXPECT_EQ(receive(other.get()), from_hex("01 02"));
}

TEST_F(RelayTest, HostThatReadsNothing_HoldsNobodyUp) {
  const Bytes much(1 << 20, 0xAB);
  ssize_t sent = 0;
  for (pollfd writable{controller_.get(), POLLOUT, 0}; sent < (1 << 24) && poll(&writable, 1, 100) == 1;) {
    const ssize_t now = send(controller_.get(), much.data(), much.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (now <= 0) break;
    sent += now;
  }
  EXPECT_GT(sent, 0);
  relay_.stop();
}

class CutRelayTest : public RelayTest {
 protected:
  // Room for the connection, and for one event with the bytes of a request.
  CutRelayTest() : RelayTest(2 * kBesideBytes + from_hex(kResolveD).size()) {}
};

TEST_F(CutRelayTest, BytesBehindTheBound_ArePassedOnAndNotRecorded) {
  send_all(host_.get(), from_hex(kResolveD));
  EXPECT_EQ(receive(controller_.get()), from_hex(kResolveD));
  EXPECT_FALSE(relay_.recording().is_cut);
  send_all(controller_.get(), from_hex("01"));
  EXPECT_EQ(receive(host_.get()), from_hex("01"));
  send_all(host_.get(), from_hex("02 03"));
  EXPECT_EQ(receive(controller_.get()), from_hex("02 03"));
  const Recording recording = relay_.recording();
  EXPECT_TRUE(recording.is_cut);
  ASSERT_EQ(recording.connections.size(), 1U);
  ASSERT_EQ(recording.connections[0].events.size(), 1U);
  EXPECT_EQ(recording.connections[0].events[0].bytes, from_hex(kResolveD));
}

TEST_F(CutRelayTest, ConnectionBehindTheBound_IsPassedOnAndNotRecorded) {
  send_all(host_.get(), Bytes(4096, 0xAB));
  EXPECT_FALSE(receive(controller_.get()).empty());
  const ScopedDescriptor second(connect_to(relay_.port()));
  ASSERT_TRUE(wait_readable(listener_.fd()));
  const ScopedDescriptor other(accept(listener_.fd(), nullptr, nullptr));
  send_all(other.get(), from_hex("01 02"));
  EXPECT_EQ(receive(second.get()), from_hex("01 02"));
  const Recording recording = relay_.recording();
  EXPECT_TRUE(recording.is_cut);
  ASSERT_EQ(recording.connections.size(), 1U);
  EXPECT_TRUE(recording.connections[0].events.empty());
}

// One byte a segment: an event takes what it holds, and not what a segment could hold.
TEST_F(RelayTest, ManySmallSegments_TakeNoMoreThanTheirBytes) {
  for (int i = 0; i < 100; ++i) {
    send_all(host_.get(), from_hex("01"));
    ASSERT_EQ(receive(controller_.get()).size(), 1U);
  }
  for (const TrafficEvent& event : events(100)) EXPECT_LE(event.bytes.capacity(), 16U);
}

TEST_F(RelayTest, RecordingThatIsTaken_LeavesTheLaterBytes) {
  send_all(host_.get(), from_hex("01"));
  ASSERT_EQ(receive(controller_.get()), from_hex("01"));
  EXPECT_EQ(relay_.take_recording().connections.at(0).events.size(), 1U);
  EXPECT_EQ(relay_.recording().connections.at(0).events.size(), 0U);
  send_all(controller_.get(), from_hex("02"));
  ASSERT_EQ(receive(host_.get()), from_hex("02"));
  const wire_trace::Recording later = relay_.take_recording();
  ASSERT_EQ(later.connections.at(0).events.size(), 1U);
  EXPECT_FALSE(later.connections[0].events[0].from_host);
  EXPECT_EQ(later.connections[0].events[0].bytes, from_hex("02"));
}

TEST_F(CutRelayTest, RecordingThatIsTaken_GivesItsRoomBack) {
  for (int i = 0; i < 3; ++i) {
    send_all(host_.get(), from_hex(kResolveD));
    ASSERT_EQ(receive(controller_.get()), from_hex(kResolveD));
    const Recording taken = relay_.take_recording();
    EXPECT_FALSE(taken.is_cut);
    EXPECT_EQ(taken.connections.at(0).events.size(), 1U);
  }
}

TEST(Reach, PortWithoutAListener_IsRefused) {
  const LoopbackSocket silent(SOCK_STREAM);
  const Reach reach = wire_trace::reach_controller(kLoopbackAddress, silent.port(), kPatienceMs);
  EXPECT_EQ(reach.descriptor, -1);
  EXPECT_TRUE(reach.is_refused);
  EXPECT_EQ(reach.problem, "Connection refused");
}

TEST(Relay, ControllerThatIsGone_RefusesLaterConnections) {
  const LoopbackSocket gone(SOCK_STREAM);
  RecordingRelay relay(kLoopbackAddress, gone.port(), -1);
  const Reach reach = wire_trace::reach_controller(kLoopbackAddress, relay.port(), kPatienceMs);
  const ScopedDescriptor host(reach.descriptor);
  if (reach.problem.empty()) {
    EXPECT_EQ(receive(host.get()), from_hex("EE"));
  } else {  // the reset was faster than the look at the connection
    EXPECT_EQ(reach.problem, strerror(ECONNRESET));
  }
  relay.stop();
  ASSERT_EQ(relay.recording().connections.size(), 1U);
  EXPECT_TRUE(relay.recording().connections[0].is_refused);
}

// One descriptor is left: for the host's connection, and none for the controller's.
TEST(Relay, RelayWithoutADescriptor_IsNoRefusalOfTheControllers) {
  const LoopbackSocket controller(SOCK_STREAM);
  RecordingRelay relay(kLoopbackAddress, controller.port(), -1);
  const ScopedDescriptor host(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int next = dup(host.get());
  ASSERT_GE(next, 0);
  close(next);
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
  rlimit tight = usual;
  tight.rlim_cur = static_cast<rlim_t>(next) + 1;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &tight), 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(kLoopbackAddress);
  address.sin_port = htons(relay.port());
  char byte = 0;
  EXPECT_EQ(connect(host.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  EXPECT_LE(recv(host.get(), &byte, 1, 0), 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
  relay.stop();
  try {
    relay.recording();
    ADD_FAILURE() << "a recording that lacks a connection was given";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "cannot take the host's connection: Too many open files");
  }
}

}  // namespace
