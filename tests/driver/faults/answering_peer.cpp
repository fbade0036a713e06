// The controller of answering_peer.h.
#include "tests/driver/faults/answering_peer.h"

#include <sys/eventfd.h>

#include <utility>

#include "tests/support/peer/controller_reply.h"

namespace plc_test {
namespace {

constexpr size_t kRequestClassAt = 10;
constexpr uint8_t kValueRequest[] = {0x1E, 0x09};

void die(const char* what) {
  std::perror(what);
  std::abort();
}

}  // namespace

AnsweringPeer::AnsweringPeer()
    : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), stop_(eventfd(0, EFD_CLOEXEC)) {
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(kLoopbackAddress);
  socklen_t length = sizeof own;
  if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&own), length) != 0 ||
      getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&own), &length) != 0 ||
      listen(listener_.get(), SOMAXCONN) != 0) {
    die("answering peer");
  }
  port_ = ntohs(own.sin_port);
  thread_ = std::thread([this] { run(); });
}

AnsweringPeer::~AnsweringPeer() {
  if (eventfd_write(stop_.get(), 1) != 0) die("answering peer: stop");
  thread_.join();
}

// The driver has one connection that it speaks on, the newest.
void AnsweringPeer::run() {
  for (;;) {
    pollfd waits[] = {{stop_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}, {connection_.get(), POLLIN, 0}};
    if (poll(waits, 3, -1) < 0 && errno != EINTR) die("answering peer: poll");
    if (waits[2].revents != 0) {
      answer();
    } else if (waits[1].revents != 0) {
      connection_.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    } else if (waits[0].revents != 0) {
      return;
    }
  }
}

// A request comes with one receive: the driver sends it with one call and waits for the reply.
void AnsweringPeer::answer() {
  Bytes request(8192);
  const ssize_t got = recv(connection_.get(), request.data(), request.size(), 0);
  if (got <= 0) {
    connection_.reset();
    return;
  }
  request.resize(static_cast<size_t>(got));
  Bytes reply(kPeerReplyBytes);
  if (request.size() > kRequestClassAt + 1 && request[kRequestClassAt] == kValueRequest[0] &&
      request[kRequestClassAt + 1] == kValueRequest[1]) {
    reply = Bytes(kReplyHeadBytes) + Bytes{kPeerValue >> 8, kPeerValue & 0xFF};
  }
  reply = form_reply(request, std::move(reply), ReplyForm::kComplete);
  send(connection_.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
}

}  // namespace plc_test
