// The fixture of tests that call the connection's own functions against a scripted controller.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/link/transaction.h"
#include "tests/support/descriptors.h"
#include "tests/support/driver_build.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/guarded_buffer.h"

namespace plc_test {

constexpr size_t kReplyBytes = 4096;
constexpr int32_t kNoLength = -77;

class ConnectionFixture : public DriverFixture {
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

  // A whole reply to this request, with this behind its head.
  static Bytes reply_to(const Bytes& request, const Bytes& content) {
    return form_reply(request, Bytes(kReplyHeadBytes) + content, ReplyForm::kExact);
  }

  Bytes reply() const { return Bytes(reply_.data(), reply_.data() + reply_length_); }

  // Stale input of this many bytes, each the low byte of its place, is waiting when this returns.
  void queue_stale(size_t count) {
    Bytes stale(count);
    for (size_t i = 0; i < count; ++i) stale[i] = static_cast<uint8_t>(i);
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

  // The guarded build closes the connection instead.
  void expect_kept_by_contract(int socket_fd) const {
    if (expects_contract()) {
      expect_kept(socket_fd);
    } else {
      expect_closed(socket_fd);
    }
  }

  GuardedBuffer reply_{kReplyBytes, 0xEE};
  int32_t reply_length_ = kNoLength;
};

}  // namespace plc_test
