// A server on 127.0.0.1 that sends back each byte that it gets, on all its connections.
#pragma once

#include <array>
#include <cstdint>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/support/loopback.h"

namespace plc_test {

class EchoServer {
 public:
  EchoServer() : listener_(SOCK_STREAM, 8), thread_([this] { serve(); }) {}
  ~EchoServer() {
    shutdown(listener_.fd(), SHUT_RDWR);
    thread_.join();
  }
  EchoServer(const EchoServer&) = delete;
  EchoServer& operator=(const EchoServer&) = delete;

  uint16_t port() const { return listener_.port(); }

 private:
  // Until accept fails, which it does once the listener is shut down.
  void serve() const {
    std::vector<pollfd> watched = {{listener_.fd(), POLLIN, 0}};
    while (poll(watched.data(), watched.size(), -1) > 0) {
      for (size_t i = watched.size(); i-- > 1;) {
        if (watched[i].revents == 0 || sends_back(watched[i].fd)) continue;
        close(watched[i].fd);
        watched.erase(watched.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (watched[0].revents == 0) continue;
      const int taken = accept(listener_.fd(), nullptr, nullptr);
      if (taken < 0) break;
      watched.push_back({taken, POLLIN, 0});
    }
    for (size_t i = 1; i < watched.size(); ++i) close(watched[i].fd);
  }
  static bool sends_back(int connection) {
    std::array<char, 4096> bytes{};
    const ssize_t count = recv(connection, bytes.data(), bytes.size(), 0);
    return count > 0 && send(connection, bytes.data(), static_cast<size_t>(count), MSG_NOSIGNAL) == count;
  }

  LoopbackSocket listener_;
  std::thread thread_;
};

}  // namespace plc_test
