// Tests of the scripted controller itself: what it records and sends, so that the driver's tests can trust it.
#include "tests/support/peer/scripted_peer.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <vector>

namespace {

using plc_test::answer_and_close;
using plc_test::answer_and_reset;
using plc_test::answer_raw;
using plc_test::Bytes;
using plc_test::close_orderly;
using plc_test::from_hex;
using plc_test::PeerStep;
using plc_test::ReplyForm;
using plc_test::reset_connection;
using plc_test::ScopedDescriptor;
using plc_test::ScriptedPeer;
using plc_test::stay_silent;

// A blocking client of the peer.
struct Client {
  explicit Client(const ScriptedPeer& peer) : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(peer.port());
    address.sin_addr.s_addr = htonl(plc_test::kLoopbackAddress);
    EXPECT_EQ(connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  }

  ssize_t write(const Bytes& bytes) const { return send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL); }

  // What comes in next; empty at the end of the connection.
  Bytes read(size_t count) const {
    EXPECT_TRUE(plc_test::wait_for_input(socket.get(), count));
    Bytes bytes(4096);
    const ssize_t got = recv(socket.get(), bytes.data(), bytes.size(), 0);
    bytes.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return bytes;
  }

  ScopedDescriptor socket;
};

TEST(ScriptedPeer, RequestsOfAScript_AreRecordedAndAnsweredInOrder) {
  ScriptedPeer peer({answer_raw(from_hex("01 02")), stay_silent(), answer_raw(from_hex("03"))});
  const Client client(peer);
  ASSERT_EQ(client.write(from_hex("AA")), 1);
  EXPECT_EQ(client.read(2), from_hex("01 02"));
  ASSERT_EQ(client.write(from_hex("BB BB")), 2);
  ASSERT_TRUE(peer.wait_for_requests(2));
  ASSERT_EQ(client.write(from_hex("CC")), 1);
  EXPECT_EQ(client.read(1), from_hex("03"));
  const std::vector<Bytes> expected = {from_hex("AA"), from_hex("BB BB"), from_hex("CC")};
  EXPECT_EQ(peer.finish(), expected);
  EXPECT_EQ(peer.unused_steps(), 0U);
  EXPECT_EQ(peer.connections(), 1U);
}

TEST(ScriptedPeer, OrderlyClose_EndsTheConnectionBehindTheReply) {
  ScriptedPeer peer({answer_and_close(from_hex("05"), ReplyForm::kRaw), close_orderly()});
  const Client first(peer);
  ASSERT_EQ(first.write(from_hex("AA")), 1);
  EXPECT_EQ(first.read(1), from_hex("05"));
  char byte = 0;
  EXPECT_EQ(recv(first.socket.get(), &byte, 1, 0), 0);
  const Client second(peer);
  ASSERT_EQ(second.write(from_hex("BB")), 1);
  EXPECT_EQ(recv(second.socket.get(), &byte, 1, 0), 0);
  EXPECT_EQ(peer.connections(), 2U);
}

TEST(ScriptedPeer, Reset_GivesTheReplyThenTheError) {
  ScriptedPeer peer({answer_and_reset(from_hex("05"), ReplyForm::kRaw), reset_connection()});
  const Client first(peer);
  ASSERT_EQ(first.write(from_hex("AA")), 1);
  EXPECT_EQ(first.read(1), from_hex("05"));
  char byte = 0;
  EXPECT_EQ(recv(first.socket.get(), &byte, 1, 0), -1);
  EXPECT_EQ(errno, ECONNRESET);
  const Client second(peer);
  ASSERT_EQ(second.write(from_hex("BB")), 1);
  EXPECT_EQ(recv(second.socket.get(), &byte, 1, 0), -1);
  EXPECT_EQ(errno, ECONNRESET);
}

TEST(ScriptedPeer, RequestBeyondTheScript_IsRecordedAndClosed) {
  ScriptedPeer peer({});
  const Client client(peer);
  ASSERT_EQ(client.write(from_hex("AA")), 1);
  char byte = 0;
  EXPECT_EQ(recv(client.socket.get(), &byte, 1, 0), 0);
  EXPECT_EQ(peer.finish(), std::vector<Bytes>{from_hex("AA")});
  EXPECT_EQ(peer.script_length(), 0U);
}

TEST(ScriptedPeer, UnusedSteps_AreCounted) {
  ScriptedPeer peer({stay_silent(), stay_silent()});
  peer.extend({stay_silent()});
  EXPECT_TRUE(peer.finish().empty());
  EXPECT_EQ(peer.unused_steps(), 3U);
}

TEST(ScriptedPeer, SendNow_SendsWhatNoRequestAskedFor) {
  ScriptedPeer peer({});
  const Client client(peer);
  ASSERT_TRUE(peer.wait_for_connections(1));
  peer.send_now(from_hex("01 02 03"));
  EXPECT_EQ(client.read(3), from_hex("01 02 03"));
}

TEST(ScriptedPeer, OtherLoopbackAddress_IsListenedOnThere) {
  constexpr uint32_t kSecondAddress = 0x7F000002;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(plc_test::kLoopbackAddress);
  // Its port on the first address is held here, bound and not listened on: a test beside this one may have it there,
  // and would answer. Such a peer is given up and another port taken.
  std::vector<std::unique_ptr<ScriptedPeer>> peers;
  ScopedDescriptor holder;
  do {
    peers.push_back(std::make_unique<ScriptedPeer>(std::vector<PeerStep>{answer_raw(from_hex("07"))}, kSecondAddress));
    address.sin_port = htons(peers.back()->port());
    holder.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  } while (bind(holder.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 && peers.size() < 100);

  const ScopedDescriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), -1);
  address.sin_addr.s_addr = htonl(kSecondAddress);
  const ScopedDescriptor other(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(other.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

}  // namespace
