// The scripted controller of scripted_peer.h.
#include "tests/support/peer/scripted_peer.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/uio.h>

#include <cerrno>
#include <chrono>

#include "tests/support/driver_build.h"

namespace plc_test {
namespace {

constexpr size_t kLargestRequestBytes = 65536;
// Far above what any step takes, also under emulation.
int patience_ms() { return static_cast<int>(reply_wait_s()) * 1000; }

void die(const char* what) {
  std::perror(what);
  std::abort();
}

// All bytes go out, whatever the socket's buffer takes at once. False when the driver has closed the connection.
bool send_all(int descriptor, const Bytes& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    iovec piece = {const_cast<uint8_t*>(bytes.data()) + sent, bytes.size() - sent};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    const ssize_t count = sendmsg(descriptor, &message, MSG_NOSIGNAL);
    if (count <= 0) return false;
    sent += static_cast<size_t>(count);
  }
  return true;
}

void reset_on_close(int descriptor) {
  const linger at_once = {1, 0};
  if (setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once) != 0) die("scripted peer: linger");
}

}  // namespace

ScriptedPeer::ScriptedPeer(std::vector<PeerStep> script, uint32_t address)
    : script_(std::move(script)),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      stop_(eventfd(0, EFD_CLOEXEC)) {
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_addr.s_addr = htonl(address);
  socklen_t length = sizeof own;
  if (stop_.get() < 0 || bind(listener_.get(), reinterpret_cast<sockaddr*>(&own), length) != 0 ||
      getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&own), &length) != 0 ||
      listen(listener_.get(), SOMAXCONN) != 0) {
    die("scripted peer");
  }
  port_ = ntohs(own.sin_port);
  thread_ = std::thread([this] { run(); });
}

ScriptedPeer::~ScriptedPeer() { finish(); }

void ScriptedPeer::extend(const std::vector<PeerStep>& steps) {
  const std::lock_guard<std::mutex> lock(mutex_);
  script_.insert(script_.end(), steps.begin(), steps.end());
}

void ScriptedPeer::send_now(const Bytes& bytes) {
  int descriptor = -1;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    descriptor = connection_.get();
  }
  if (!send_all(descriptor, bytes)) die("scripted peer: no connection to send on");
}

std::vector<Bytes> ScriptedPeer::finish() {
  if (thread_.joinable()) {
    if (eventfd_write(stop_.get(), 1) != 0) die("scripted peer: stop");
    thread_.join();
  }
  return requests();
}

std::vector<Bytes> ScriptedPeer::requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

size_t ScriptedPeer::connections() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return connections_;
}

bool ScriptedPeer::wait_for_connections(size_t count) {
  std::unique_lock<std::mutex> lock(mutex_);
  return progress_.wait_for(lock, std::chrono::milliseconds(patience_ms()), [&] { return connections_ >= count; });
}

bool ScriptedPeer::wait_for_requests(size_t count) {
  std::unique_lock<std::mutex> lock(mutex_);
  return progress_.wait_for(lock, std::chrono::milliseconds(patience_ms()), [&] { return requests_.size() >= count; });
}

size_t ScriptedPeer::unused_steps() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return script_.size() - next_step_;
}

size_t ScriptedPeer::script_length() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return script_.size();
}

// A new connection takes the place of the old one: the driver has one at a time, and its next request comes on the
// newest.
void ScriptedPeer::run() {
  for (;;) {
    pollfd waits[] = {{stop_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}, {connection_.get(), POLLIN, 0}};
    if (poll(waits, 3, -1) < 0 && errno != EINTR) die("scripted peer: poll");
    // A request comes before the end of the thread and before a newer connection, so that none is lost.
    if (waits[2].revents != 0) {
      if (!serve_request()) {
        const std::lock_guard<std::mutex> lock(mutex_);
        connection_.reset();
      }
    } else if (waits[1].revents != 0) {
      if (!accept_connection()) die("scripted peer: accept");
    } else if (waits[0].revents != 0) {
      return;
    }
  }
}

bool ScriptedPeer::accept_connection() {
  const int accepted = accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC);
  const int at_once = 1;  // bytes sent behind others do not wait for the driver's acknowledgment
  setsockopt(accepted, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  const std::lock_guard<std::mutex> lock(mutex_);
  connection_.reset(accepted);
  ++connections_;
  progress_.notify_all();
  return accepted >= 0;
}

// One request and what the script says to it. False when the connection has ended or a request came that the script
// does not know.
bool ScriptedPeer::serve_request() {
  Bytes request(kLargestRequestBytes);
  iovec piece = {request.data(), request.size()};
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  const ssize_t count = recvmsg(connection_.get(), &message, 0);
  if (count <= 0) return false;
  request.resize(static_cast<size_t>(count));
  PeerStep step;
  if (!take_step(request, &step)) return false;
  step.reply = form_reply(request, std::move(step.reply), step.form);
  carry_out(step);
  return true;
}

bool ScriptedPeer::take_step(const Bytes& request, PeerStep* step) {
  const std::lock_guard<std::mutex> lock(mutex_);
  requests_.push_back(request);
  progress_.notify_all();
  if (next_step_ == script_.size()) return false;
  *step = script_[next_step_++];
  return true;
}

void ScriptedPeer::carry_out(const PeerStep& step) {
  send_all(connection_.get(), step.reply);
  if (step.end == PeerStep::End::kKeep) return;
  if (step.end == PeerStep::End::kReset) reset_on_close(connection_.get());
  const std::lock_guard<std::mutex> lock(mutex_);
  connection_.reset();
}

bool wait_for_input(int descriptor, size_t count) {
  const int wanted = static_cast<int>(count);
  const int one = 1;
  pollfd wait = {descriptor, POLLIN, 0};
  setsockopt(descriptor, SOL_SOCKET, SO_RCVLOWAT, &wanted, sizeof wanted);
  poll(&wait, 1, patience_ms());
  setsockopt(descriptor, SOL_SOCKET, SO_RCVLOWAT, &one, sizeof one);
  int waiting = 0;
  return ioctl(descriptor, FIONREAD, &waiting) == 0 && waiting >= wanted;
}

bool wait_for_hangup(int descriptor) {
  pollfd wait = {descriptor, 0, 0};
  return poll(&wait, 1, patience_ms()) == 1;
}

bool wait_for_end(int descriptor) {
  pollfd wait = {descriptor, POLLRDHUP, 0};
  return poll(&wait, 1, patience_ms()) == 1;
}

}  // namespace plc_test
