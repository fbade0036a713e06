// Sockets on 127.0.0.1 with ports that the system chooses.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace plc_test {

constexpr uint32_t kLoopbackAddress = 0x7F000001;

// Owns one descriptor and closes it at its end.
class ScopedDescriptor {
 public:
  explicit ScopedDescriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ScopedDescriptor(const ScopedDescriptor&) = delete;
  ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;
  ~ScopedDescriptor() { reset(); }

  int get() const { return descriptor_; }
  void reset(int descriptor = -1) {
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = descriptor;
  }

 private:
  int descriptor_;
};

// An IPv4 socket bound to 127.0.0.1 and a free port; it listens when a backlog is given.
class LoopbackSocket {
 public:
  static constexpr int kNotListening = -1;
  static constexpr int kReused = -2;  // not listening; another may listen at the same port

  explicit LoopbackSocket(int type, int backlog = kNotListening) : socket_(socket(AF_INET, type | SOCK_CLOEXEC, 0)) {
    sockaddr_in address = form_address(0);
    socklen_t length = sizeof address;
    const int reuses = backlog == kReused ? 1 : 0;
    if (setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &reuses, sizeof reuses) != 0 ||
        bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        (backlog >= 0 && listen(socket_.get(), backlog) != 0)) {
      std::perror("loopback socket");
      std::abort();
    }
    port_ = ntohs(address.sin_port);
  }

  int fd() const { return socket_.get(); }
  uint16_t port() const { return port_; }
  sockaddr_in address() const { return form_address(port_); }

 private:
  static sockaddr_in form_address(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(kLoopbackAddress);
    return address;
  }

  ScopedDescriptor socket_;
  uint16_t port_ = 0;
};

// A free port of 127.0.0.1 that the system gives nobody else, also between the end of a program that listens there and
// its next start, and that no connect begins at. Whoever is told to listens there, if it reuses addresses.
class HeldPort {
 public:
  HeldPort() : holder_(SOCK_STREAM, LoopbackSocket::kReused) {}
  uint16_t port() const { return holder_.port(); }

 private:
  LoopbackSocket holder_;
};

// A listening socket whose backlog is full: further connects to it are under way for as long as it lives.
class FullBacklog {
 public:
  FullBacklog() : listener_(SOCK_STREAM, 0) {
    constexpr size_t kMostWaiting = 16;  // the system takes one or two beyond the backlog of 0
    constexpr int kHangsMs = 200;
    for (size_t i = 0; i < kMostWaiting; ++i) {
      waiting_.push_back(std::make_unique<ScopedDescriptor>(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)));
      sockaddr_in address = listener_.address();
      const int connected = connect(waiting_.back()->get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
      pollfd wait = {waiting_.back()->get(), POLLOUT, 0};
      if (connected != 0 && errno == EINPROGRESS && poll(&wait, 1, kHangsMs) == 0) return;
    }
    std::fputs("the backlog does not fill\n", stderr);
    std::abort();
  }

  uint16_t port() const { return listener_.port(); }

 private:
  LoopbackSocket listener_;
  std::vector<std::unique_ptr<ScopedDescriptor>> waiting_;
};

}  // namespace plc_test
