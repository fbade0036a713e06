// A server with a rule of its own, for what the simulator does not do.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>

namespace plc_host_test {

// Answers what it gets by a rule of its own, on one connection after the other.
class OwnServer {
 public:
  explicit OwnServer(std::function<std::string(const std::string&)> rule) : rule_(std::move(rule)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const auto named = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(bind(listener_, named, size), 0);
    EXPECT_EQ(listen(listener_, 8), 0);
    EXPECT_EQ(getsockname(listener_, named, &size), 0);
    port_ = std::to_string(ntohs(address.sin_port));
    thread_ = std::thread([this] { serve(); });
  }
  ~OwnServer() {
    is_over_ = true;
    thread_.join();
    close(listener_);
  }
  OwnServer(const OwnServer&) = delete;
  OwnServer& operator=(const OwnServer&) = delete;
  const std::string& port() const { return port_; }

 private:
  bool is_ready(int descriptor) const {
    pollfd waited{descriptor, POLLIN, 0};
    while (!is_over_) {
      if (poll(&waited, 1, 20) > 0) return true;
    }
    return false;
  }
  void serve() const {
    while (is_ready(listener_)) {
      const int taken = accept(listener_, nullptr, nullptr);
      std::array<char, 4096> bytes{};
      while (is_ready(taken)) {
        const ssize_t count = recv(taken, bytes.data(), bytes.size(), 0);
        if (count <= 0) break;
        const std::string answer = rule_({bytes.data(), static_cast<size_t>(count)});
        if (send(taken, answer.data(), answer.size(), MSG_NOSIGNAL) < 0) break;
      }
      close(taken);
    }
  }

  std::function<std::string(const std::string&)> rule_;
  int listener_ = socket(AF_INET, SOCK_STREAM, 0);
  std::string port_;
  std::atomic<bool> is_over_{false};
  std::thread thread_;
};

}  // namespace plc_host_test
