// The listening socket.
//
// It is no libuv stream: a stream accepts by itself, and a full backlog needs a socket that accepts nobody.
#include "tools/plc_sim/server/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace plc_sim {
namespace {

constexpr int kBacklog = 64;
constexpr int kMaxOwnConnections = 16;
constexpr int kHeldBackAfterMs = 20;  // a connect on loopback that takes longer is held back by the backlog

sockaddr_in address_of(const std::string& host, uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  return address;
}

const sockaddr* generic(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }

uint16_t local_port(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  return ntohs(address.sin_port);
}

}  // namespace

Listener::Listener(uv_loop_t* loop, std::function<void(int)> on_accept)
    : loop_(loop), on_accept_(std::move(on_accept)) {}

Listener::~Listener() { close(); }

std::string Listener::open(const std::string& host, uint16_t port) {
  const int on = 1;
  const sockaddr_in address = address_of(host, port);
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return std::strerror(errno);
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (segment_bytes_ > 0) {
    setsockopt(descriptor, IPPROTO_TCP, TCP_MAXSEG, &segment_bytes_, sizeof segment_bytes_);
  }
  if (bind(descriptor, generic(address), sizeof address) != 0 || listen(descriptor, kBacklog) != 0) {
    std::string reason = std::strerror(errno);
    ::close(descriptor);
    return reason;
  }
  descriptor_ = descriptor;
  host_ = host;
  port_ = local_port(descriptor);
  poll_ = new uv_poll_t;
  uv_poll_init(loop_, poll_, descriptor);
  retry_ = new uv_timer_t;
  uv_timer_init(loop_, retry_);
  poll_->data = retry_->data = this;
  uv_poll_start(poll_, UV_READABLE, on_readable);
  return {};
}

void Listener::close() {
  close_own();
  if (descriptor_ < 0) return;
  uv_poll_stop(poll_);
  uv_close(reinterpret_cast<uv_handle_t*>(poll_),
           [](uv_handle_t* handle) { delete reinterpret_cast<uv_poll_t*>(handle); });
  uv_close(reinterpret_cast<uv_handle_t*>(retry_),
           [](uv_handle_t* handle) { delete static_cast<uv_timer_t*>(static_cast<void*>(handle)); });
  ::close(descriptor_);
  poll_ = nullptr;
  retry_ = nullptr;
  descriptor_ = -1;
}

std::string Listener::reopen() { return descriptor_ >= 0 ? std::string{} : open(host_, port_); }

void Listener::on_readable(uv_poll_t* handle, int status, int) {
  if (status == 0) static_cast<Listener*>(handle->data)->accept_all();
}

void Listener::accept_all() {
  for (;;) {
    const int descriptor = accept4(descriptor_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (descriptor < 0) {
      const bool is_short = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
      if (is_short) wait_for_descriptors();
      return;
    }
    if (is_own(descriptor)) {
      ::close(descriptor);
    } else {
      on_accept_(descriptor);
    }
  }
}

// Without one to give, who waits cannot be taken, and the socket would stay readable without an end.
void Listener::wait_for_descriptors() {
  constexpr uint64_t kRetryMs = 100;
  uv_poll_stop(poll_);
  const auto retry = [](uv_timer_t* timer) {
    auto* self = static_cast<Listener*>(timer->data);
    uv_poll_start(self->poll_, UV_READABLE, on_readable);
  };
  uv_timer_start(retry_, retry, kRetryMs, 0);
}

bool Listener::is_own(int descriptor) const {
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length);
  return std::find(own_ports_.begin(), own_ports_.end(), ntohs(peer.sin_port)) != own_ports_.end();
}

bool Listener::hold() {
  if (descriptor_ < 0) return false;
  uv_timer_stop(retry_);
  uv_poll_stop(poll_);
  listen(descriptor_, 0);
  const sockaddr_in address = address_of(host_, port_);
  for (int i = 0; i < kMaxOwnConnections; ++i) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return false;
    if (connect(descriptor, generic(address), sizeof address) != 0) {
      pollfd ready{descriptor, POLLOUT, 0};
      if (poll(&ready, 1, kHeldBackAfterMs) == 0) {
        ::close(descriptor);
        return true;
      }
    }
    own_connections_.push_back(descriptor);
    own_ports_.push_back(local_port(descriptor));
  }
  return false;
}

void Listener::release() {
  if (descriptor_ < 0) return;
  listen(descriptor_, kBacklog);
  accept_all();
  close_own();
  uv_poll_start(poll_, UV_READABLE, on_readable);
}

void Listener::close_own() {
  for (const int descriptor : own_connections_) ::close(descriptor);
  own_connections_.clear();
  own_ports_.clear();
}

}  // namespace plc_sim
