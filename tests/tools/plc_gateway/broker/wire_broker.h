// A broker whose every byte the test says: it reads packets of MQTT and answers as it is told.
#pragma once

#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/loopback.h"

namespace gateway_test {

// One connection, with the fake's side of it. Nothing here waits for ever: the socket has time-outs.
class BrokerSide {
 public:
  explicit BrokerSide(int socket) : socket_(socket) {
    timeval patience{};
    patience.tv_sec = 30;
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  // A whole packet; empty at the end of the connection.
  std::string packet() {
    std::string bytes = take(1);
    size_t length = 0;
    for (unsigned shift = 0; !bytes.empty(); shift += 7) {
      const std::string next = take(1);
      if (next.empty()) return {};
      bytes += next;
      length |= static_cast<size_t>(static_cast<uint8_t>(next[0]) & 0x7FU) << shift;
      if ((static_cast<uint8_t>(next[0]) & 0x80U) == 0) break;
    }
    return bytes.empty() ? bytes : bytes + take(length);
  }

  void send(const std::string& bytes) { ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

 private:
  std::string take(size_t count) {
    std::string bytes(count, '\0');
    return recv(socket_, bytes.data(), count, MSG_WAITALL) == static_cast<ssize_t>(count) ? bytes : std::string();
  }

  int socket_;
};

// Serves connections one after the other, each until `serve` returns.
class WireBroker {
 public:
  explicit WireBroker(std::function<void(BrokerSide&)> serve)
      : listener_(SOCK_STREAM, 8), thread_([this, serve = std::move(serve)] { run(serve); }) {}
  ~WireBroker() {
    shutdown(listener_.fd(), SHUT_RDWR);
    thread_.join();
  }
  WireBroker(const WireBroker&) = delete;
  WireBroker& operator=(const WireBroker&) = delete;

  uint16_t port() const { return listener_.port(); }

 private:
  void run(const std::function<void(BrokerSide&)>& serve) {
    for (;;) {
      const plc_test::ScopedDescriptor socket(accept(listener_.fd(), nullptr, nullptr));
      if (socket.get() < 0) return;
      BrokerSide side(socket.get());
      serve(side);
    }
  }

  plc_test::LoopbackSocket listener_;
  std::thread thread_;
};

// What brokers say.
inline const std::string kAccepted("\x20\x02\x00\x00", 4);
inline const std::string kAccepted5("\x20\x03\x00\x00\x00", 5);
inline std::string refusal(char code) { return std::string("\x20\x02\x00", 3) + code; }

}  // namespace gateway_test
