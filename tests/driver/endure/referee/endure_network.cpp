// Connections that end in this process, and the order in which things happen on them.
#include "tests/driver/endure/referee/endure_network.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace plc_endure {
namespace {

// Units that are older than this many exchanges are not delivered any more: sequence numbers come round again after
// 65536, and then nobody could tell an old frame from a new one.
constexpr uint64_t kOldestUnit = 20000;
constexpr int kSettleTries = 100000;      // seconds, on a machine that is busy
constexpr uint64_t kSettleBytes = 16384;  // more may wait for room on the driver's side

void close_now(int fd) { syscall(SYS_close, fd); }

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

int bound_socket() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = loopback(0);
  if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    std::perror("a port of the loopback device");
    std::abort();
  }
  return fd;
}

int connect_to(int fd, int holder) {
  sockaddr_in address = {};
  socklen_t length = sizeof address;
  getsockname(holder, reinterpret_cast<sockaddr*>(&address), &length);
  return static_cast<int>(syscall(SYS_connect, fd, &address, sizeof address));
}

// Whether these are both ends of one connection.
bool are_joined(int fd, int other_fd) {
  sockaddr_in own = {};
  sockaddr_in seen = {};
  socklen_t own_length = sizeof own;
  socklen_t seen_length = sizeof seen;
  return getsockname(fd, reinterpret_cast<sockaddr*>(&own), &own_length) == 0 &&
         getpeername(other_fd, reinterpret_cast<sockaddr*>(&seen), &seen_length) == 0 && own.sin_port == seen.sin_port;
}

ssize_t send_now(int fd, const uint8_t* bytes, size_t count) {
  return sendto(fd, bytes, count, MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0);
}

}  // namespace

Network& Network::instance() {
  static thread_local Network network;
  return network;
}

Network::Network() : listener_(bound_socket()), closed_port_holder_(bound_socket()) {
  constexpr int kBacklog = 16;
  if (listen(listener_, kBacklog) != 0) std::abort();
}

void Network::begin_call(std::shared_ptr<const void> (*meaning)(void* context), void* context) {
  meaning_ = meaning;
  meaning_context_ = context;
  stalled_us_ = 0;
  is_in_call_ = true;
}

Link* Network::link_of(int driver_fd) const {
  for (const auto& link : links_) {
    if (driver_fd >= 0 && link->driver_fd == driver_fd) return link.get();
  }
  return nullptr;
}

bool Network::is_quiet(int driver_fd, uint64_t most_waiting) const {
  const Link* link = link_of(driver_fd);
  if (link == nullptr) return true;
  // What TCP has not delivered yet comes into the midst of the exchange.
  const uint64_t most = link->is_tcp ? std::min(most_waiting, kSettleBytes) : most_waiting;
  return link->sent - link->received <= most && !link->has_ended && link->units.empty() && link->requests.empty() &&
         link->held.empty();
}

bool Network::is_quiet(uint64_t most_waiting) const {
  const auto is_loud = [this, most_waiting](const std::unique_ptr<Link>& link) {
    return link->driver_fd >= 0 && !is_quiet(link->driver_fd, most_waiting);
  };
  return std::none_of(links_.begin(), links_.end(), is_loud);
}

// --- time

int64_t Network::next_due() const {
  int64_t due = kNever;
  for (const auto& link : links_) {
    if (!link->requests.empty()) due = std::min(due, link->requests.front().due_us);
    if (!link->units.empty() && !link->is_blocked) due = std::min(due, link->units.front().due_us);
  }
  for (const Connecting& connecting : connecting_) due = std::min(due, connecting.due_us);
  return due;
}

// Lets the first thing happen that is due by then.
void Network::run_first(int64_t limit_us, bool* has_run) {
  const int64_t due = next_due();
  *has_run = due <= limit_us;
  if (!*has_run) return;
  for (size_t i = 0; i < connecting_.size(); ++i) {
    if (connecting_[i].due_us == due) {
      const Connecting connecting = connecting_[i];
      connecting_.erase(connecting_.begin() + static_cast<std::ptrdiff_t>(i));
      establish(connecting.fd, connecting.is_tcp);
      return;
    }
  }
  for (size_t i = 0; i < links_.size(); ++i) {
    Link& link = *links_[i];
    if (!link.requests.empty() && link.requests.front().due_us == due) {
      const Pending request = std::move(link.requests.front());
      link.requests.pop_front();
      peer_->serve(link, request);
      return;
    }
    if (!link.units.empty() && !link.is_blocked && link.units.front().due_us == due) {
      transmit(link);
      return;
    }
  }
}

void Network::run_due() {
  bool has_run = true;
  while (has_run) run_first(now_us_, &has_run);
  remove_finished();
}

void Network::pass(int64_t us) {
  const int64_t end = now_us_ + us;
  bool has_run = true;
  while (has_run) {
    now_us_ = std::max(now_us_, std::min(next_due(), end));
    run_first(end, &has_run);
  }
  now_us_ = end;
  remove_finished();
}

void Network::tick() {
  const int64_t stall_us = peer_->stall_us();
  stalled_us_ += stall_us;
  now_us_ += 1 + stall_us;
}

void Network::remove_finished() {
  const auto is_finished = [](const std::unique_ptr<Link>& link) {
    const bool is_over = link->driver_fd < 0 && link->requests.empty();
    if (is_over && link->controller_fd >= 0) close_now(link->controller_fd);
    return is_over;
  };
  links_.erase(std::remove_if(links_.begin(), links_.end(), is_finished), links_.end());
}

// --- connections

bool Network::make_ends(int fd, bool is_tcp, Link* link) {
  if (!is_tcp) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
    // The driver goes on with its number: behind it stands one end of the pair.
    const bool is_there = dup2(ends[0], fd) == fd;
    close_now(ends[0]);
    link->controller_fd = ends[1];
    return is_there;
  }
  connect_to(fd, listener_);
  pollfd wait = {fd, POLLOUT, 0};
  poll(&wait, 1, -1);
  link->controller_fd = accept(listener_, nullptr, nullptr);
  const int at_once = 1;
  setsockopt(link->controller_fd, IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  return are_joined(fd, link->controller_fd);
}

void Network::establish(int fd, bool is_tcp) {
  auto link = std::make_unique<Link>();
  link->number = ++connection_count_;
  link->driver_fd = fd;
  link->is_tcp = is_tcp;
  tcp_count_ += is_tcp ? 1U : 0U;
  if (!make_ends(fd, is_tcp, link.get())) {
    std::perror("a connection");
    std::abort();
  }
  journal_.add(now_us_, link->number, is_tcp ? "connected by TCP" : "connected", nullptr, 0);
  links_.push_back(std::move(link));
}

void Network::close_left_open() {
  for (const int fd : driver_fds_) {
    if (Link* link = link_of(fd)) link->driver_fd = -1;
    close_now(fd);
    ++left_open_;
  }
  driver_fds_.clear();
}

int Network::on_connect(int fd) {
  tick();
  close_left_open();
  driver_fds_.push_back(fd);
  const ConnectFate fate = peer_->connecting();
  switch (fate.kind) {
    case ConnectFate::Kind::kRefused:
      journal_.add_note(now_us_, "connect refused");
      return connect_to(fd, closed_port_holder_);
    case ConnectFate::Kind::kUnreachable:
      journal_.add_note(now_us_, "connect without a route");
      errno = ENETUNREACH;
      return -1;
    case ConnectFate::Kind::kAccepted:
      break;
  }
  if (fate.after_us == 0) {
    establish(fd, fate.is_tcp);
    return 0;
  }
  connecting_.push_back({fd, now_us_ + fate.after_us, fate.is_tcp});
  errno = EINPROGRESS;
  return -1;
}

void Network::on_close(int fd) {
  const auto of_driver = std::find(driver_fds_.begin(), driver_fds_.end(), fd);
  if (of_driver != driver_fds_.end()) driver_fds_.erase(of_driver);
  const auto is_same = [fd](const Connecting& connecting) { return connecting.fd == fd; };
  connecting_.erase(std::remove_if(connecting_.begin(), connecting_.end(), is_same), connecting_.end());
  if (Link* link = link_of(fd)) {
    journal_.add(now_us_, link->number, "closed by the driver", nullptr, 0);
    link->driver_fd = -1;
    drop_units(*link);
    if (link->controller_fd >= 0) {
      close_now(link->controller_fd);
      link->controller_fd = -1;
    }
  }
}

void Network::reset_all() {
  for (const auto& link : links_) {
    drop_units(*link);
    end(*link, Ending::kReset);
  }
}

// --- from the controller to the driver

// Units go in order of time, but never into a group.
void Network::send(Link& link, Unit unit) {
  const size_t count = link.units.size();
  size_t at = link.group_end;
  if (at == 0) {
    bool is_inside = link.is_in_group;
    while (at < count && (is_inside || link.units[at].due_us <= unit.due_us)) {
      is_inside = link.units[at].joins_next;
      ++at;
    }
  } else {
    unit.due_us = std::max(unit.due_us, link.units[at - 1].due_us);
  }
  unit.born = exchanges_;
  link.group_end = unit.joins_next ? at + 1 : 0;
  link.units.insert(link.units.begin() + static_cast<std::ptrdiff_t>(at), std::move(unit));
}

void Network::drop_units(Link& link) {
  link.units.clear();
  link.is_in_group = false;
}

void Network::transmit(Link& link) {
  Unit& unit = link.units.front();
  if (link.driver_fd < 0 || link.has_ended) {
    drop_units(link);
    return;
  }
  if (exchanges_ - unit.born > kOldestUnit) {
    unit.bytes.clear();
    unit.ending = Ending::kReset;
  }
  if (!unit.bytes.empty()) {
    const ssize_t count = send_now(link.controller_fd, unit.bytes.data(), unit.bytes.size());
    const size_t done = count > 0 ? static_cast<size_t>(count) : 0;
    if (done > 0) journal_.add(now_us_, link.number, "controller sends", unit.bytes.data(), done);
    link.sent += done;
    if (done < unit.bytes.size() && (count > 0 || errno == EAGAIN)) {
      unit.bytes.erase(unit.bytes.begin(), unit.bytes.begin() + static_cast<std::ptrdiff_t>(done));
      link.is_blocked = true;
      return;
    }
    settle(link);
  }
  const Ending ending = unit.ending;
  link.is_in_group = unit.joins_next;
  link.units.pop_front();
  end(link, ending);
}

// TCP takes a moment from one end to the other.
void Network::settle(const Link& link) const {
  const uint64_t awaited = std::min(link.sent - link.received, kSettleBytes);
  int waiting = 0;
  for (int i = 0; link.is_tcp && i < kSettleTries; ++i) {
    if (ioctl(link.driver_fd, FIONREAD, &waiting) != 0 || static_cast<uint64_t>(waiting) >= awaited) return;
    const timespec moment = {0, 1000};
    syscall(SYS_ppoll, nullptr, 0, &moment, nullptr, 0);
  }
}

void Network::end(Link& link, Ending ending) {
  if (ending == Ending::kNone || link.controller_fd < 0) return;
  journal_.add(now_us_, link.number, ending == Ending::kClose ? "closed by the controller" : "reset by the controller",
               nullptr, 0);
  link.has_ended = true;
  drop_units(link);
  if (ending == Ending::kClose) {
    shutdown(link.controller_fd, SHUT_WR);
  } else {
    if (!link.is_tcp && link.driver_fd >= 0) {
      // Bytes that nobody took make the end of a stream a reset.
      const uint8_t untaken = 0;
      send_now(link.driver_fd, &untaken, 1);
    }
    const linger reset_on_close = {1, 0};
    setsockopt(link.controller_fd, SOL_SOCKET, SO_LINGER, &reset_on_close, sizeof reset_on_close);
    close_now(link.controller_fd);
    link.controller_fd = -1;
  }
  if (link.is_tcp && link.driver_fd >= 0) {
    constexpr int kMostMs = 1000;
    pollfd wait = {link.driver_fd, POLLRDHUP, 0};
    poll(&wait, 1, kMostMs);
  }
}

// --- the driver's calls

bool Network::is_ready(int fd, bool for_writing) const {
  const auto is_same = [fd](const Connecting& connecting) { return connecting.fd == fd; };
  if (std::any_of(connecting_.begin(), connecting_.end(), is_same)) return false;
  pollfd look = {fd, static_cast<short>(for_writing ? POLLIN | POLLOUT : POLLIN), 0};
  return poll(&look, 1, 0) > 0;
}

int Network::on_select(int fd, bool for_writing, int64_t timeout_us) {
  tick();
  const int64_t deadline = timeout_us > kNever / 2 ? kNever : now_us_ + timeout_us;
  run_due();
  while (!is_ready(fd, for_writing)) {
    const int64_t due = next_due();
    if (due > deadline || due == kNever) {
      now_us_ = std::max(now_us_, deadline == kNever ? now_us_ : deadline);
      return 0;
    }
    now_us_ = std::max(now_us_, due);
    run_due();
  }
  return 1;
}

ssize_t Network::on_send(int fd, const uint8_t* bytes, size_t count, int flags) {
  tick();
  run_due();
  const ssize_t sent = sendto(fd, bytes, count, flags | MSG_NOSIGNAL, nullptr, 0);
  Link* link = link_of(fd);
  if (sent > 0 && link != nullptr) {
    journal_.add(now_us_, link->number, "driver sends", bytes, static_cast<size_t>(sent));
    take_request(*link, bytes, static_cast<size_t>(sent));
    run_due();
  }
  return sent;
}

void Network::take_request(Link& link, const uint8_t* bytes, size_t count) {
  if (link.has_ended) {
    end(link, Ending::kReset);  // what comes behind the end is answered by a reset
    return;
  }
  Bytes taken(count);
  for (size_t done = 0; done < count;) {
    const ssize_t more = recvfrom(link.controller_fd, taken.data() + done, count - done, MSG_WAITALL, nullptr, nullptr);
    if (more <= 0) return;
    done += static_cast<size_t>(more);
  }
  if (!std::equal(taken.begin(), taken.end(), bytes)) std::abort();
  Pending request;
  request.due_us = peer_->arrived(link, taken);
  if (request.due_us == kNever) return;
  if (!link.requests.empty()) request.due_us = std::max(request.due_us, link.requests.back().due_us);
  request.bytes = std::move(taken);
  request.meaning = meaning_(meaning_context_);
  link.requests.push_back(std::move(request));
}

ssize_t Network::on_receive(int fd, uint8_t* bytes, size_t count, int flags) {
  tick();
  run_due();
  ssize_t received = recvfrom(fd, bytes, count, flags | MSG_DONTWAIT, nullptr, nullptr);
  while (received < 0 && errno == EAGAIN && (flags & MSG_DONTWAIT) == 0) {
    if (next_due() == kNever) {
      ++stuck_;
      errno = EAGAIN;
      return -1;
    }
    now_us_ = std::max(now_us_, next_due());
    run_due();
    received = recvfrom(fd, bytes, count, flags | MSG_DONTWAIT, nullptr, nullptr);
  }
  const int error = errno;
  Link* link = link_of(fd);
  if (link != nullptr) {
    journal_.add(now_us_, link->number, received < 0 ? "driver's receive fails" : "driver receives", bytes,
                 received > 0 ? static_cast<size_t>(received) : 0);
    if (received > 0 && (flags & MSG_PEEK) == 0) {
      link->received += static_cast<size_t>(received);
      link->is_blocked = false;
    }
  }
  errno = error;
  return received;
}

}  // namespace plc_endure
