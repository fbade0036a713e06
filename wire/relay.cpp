// Connects both sides and passes bytes on from a thread of its own.
#include "wire/relay.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <stdexcept>
#include <utility>

namespace wire_trace {
namespace {

constexpr size_t kMaxWaiting = 65536;  // bytes that one side has not taken: the other one is not read until it has
constexpr int kLaterPatienceMs = 1000;
constexpr size_t kBytesBeside = 128;  // of an event or a connection: the record of it and where its bytes lie

int64_t now_ns() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(since).count();
}

sockaddr_in make_address(uint32_t address, uint16_t port) {
  sockaddr_in made{};
  made.sin_family = AF_INET;
  made.sin_port = htons(port);
  made.sin_addr.s_addr = htonl(address);
  return made;
}

int make_socket() { return socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

// Segments go on as they came.
void send_at_once(int descriptor) {
  const int on = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

int socket_error(int descriptor) {
  int error = 0;
  socklen_t size = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
}

int connect_error(int descriptor, const sockaddr_in& to, int patience_ms) {
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  pollfd writable{descriptor, POLLOUT, 0};
  int ready = 0;
  do {
    ready = poll(&writable, 1, patience_ms);
  } while (ready < 0 && errno == EINTR);
  return ready == 0 ? ETIMEDOUT : socket_error(descriptor);
}

void close_with_reset(int& descriptor) {
  if (descriptor < 0) return;
  const linger at_once{1, 0};
  setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  close(descriptor);
  descriptor = -1;
}

void close_descriptor(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

// The thread must not take the process's signals from whoever waits for them.
void block_signals(sigset_t* old) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, old);
}

}  // namespace

Reach reach_controller(uint32_t address, uint16_t port, int patience_ms) {
  Reach reach;
  const int64_t start_ns = now_ns();
  reach.descriptor = make_socket();
  const int error =
      reach.descriptor < 0 ? errno : connect_error(reach.descriptor, make_address(address, port), patience_ms);
  reach.took_ns = now_ns() - start_ns;
  if (reach.descriptor < 0) reach.own_error = error;
  if (error != 0) {
    close_descriptor(reach.descriptor);
    reach.problem = std::strerror(error);
    reach.is_refused = error == ECONNREFUSED;
  }
  return reach;
}

// One connection of the host, and the one to the controller that it goes on over.
class RecordingRelay::Link {
 public:
  struct Side {
    int descriptor = -1;
    Bytes waiting;           // to be sent to it
    bool is_read = true;     // it may still send
    bool is_ending = false;  // it gets an end behind what is waiting
  };

  Link(size_t connection, int host, int controller) : connection_(connection) {
    host_.descriptor = host;
    controller_.descriptor = controller;
  }
  ~Link() {
    close_descriptor(host_.descriptor);
    close_descriptor(controller_.descriptor);
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  size_t connection() const { return connection_; }
  Side& side(bool is_host) { return is_host ? host_ : controller_; }
  bool is_over() const { return host_.descriptor < 0 || controller_.descriptor < 0; }

  short events(bool is_host) {
    const Side& own = side(is_host);
    const Side& other = side(!is_host);
    const int in = own.is_read && other.waiting.size() < kMaxWaiting ? POLLIN : 0;
    return static_cast<short>(in | (own.waiting.empty() ? 0 : POLLOUT));
  }

  void send_waiting(bool is_host) {
    Side& to = side(is_host);
    while (!to.waiting.empty()) {
      const ssize_t sent = send(to.descriptor, to.waiting.data(), to.waiting.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      to.waiting.erase(to.waiting.begin(), to.waiting.begin() + sent);
    }
    if (to.is_ending) shutdown(to.descriptor, SHUT_WR);
  }

  void end(bool with_reset) {
    for (Side* each : {&host_, &controller_}) {
      with_reset ? close_with_reset(each->descriptor) : close_descriptor(each->descriptor);
    }
  }

 private:
  size_t connection_;
  Side host_;
  Side controller_;
};

RecordingRelay::RecordingRelay(uint32_t address, uint16_t port, int first_descriptor, size_t most_bytes)
    : address_(address),
      controller_port_(port),
      first_descriptor_(first_descriptor),
      room_(most_bytes),
      received_(kMaxWaiting) {
  listener_ = make_socket();
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  sockaddr_in own = make_address(INADDR_LOOPBACK, 0);
  socklen_t size = sizeof own;
  if (listener_ < 0 || wake_ < 0 || bind(listener_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      listen(listener_, SOMAXCONN) != 0 || getsockname(listener_, reinterpret_cast<sockaddr*>(&own), &size) != 0) {
    const std::string problem = std::strerror(errno);
    for (int* each : {&listener_, &wake_, &first_descriptor_}) close_descriptor(*each);
    throw std::runtime_error("cannot listen on 127.0.0.1: " + problem);
  }
  port_ = ntohs(own.sin_port);
  sigset_t old;
  block_signals(&old);
  thread_ = std::thread([this] { run_in_memory(); });
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

RecordingRelay::~RecordingRelay() {
  stop();
  for (int* each : {&listener_, &wake_, &first_descriptor_}) close_descriptor(*each);
}

void RecordingRelay::stop() {
  if (!thread_.joinable()) return;
  is_stopping_ = true;
  eventfd_write(wake_, 1);
  thread_.join();
  links_.clear();
}

void RecordingRelay::refuse_gaps() const {
  if (is_out_of_memory_) throw std::bad_alloc();
  if (accept_error_ != 0) {
    throw std::runtime_error(std::string("cannot take the host's connection: ") + std::strerror(accept_error_));
  }
}

Recording RecordingRelay::recording() const {
  refuse_gaps();
  const std::lock_guard<std::mutex> lock(mutex_);
  return recording_;
}

Recording RecordingRelay::take_recording() {
  refuse_gaps();
  const std::lock_guard<std::mutex> lock(mutex_);
  Recording taken = std::exchange(recording_, {});
  recording_.is_cut = taken.is_cut;
  for (const Connection& connection : taken.connections) {
    Connection& emptied = recording_.connections.emplace_back();
    emptied.host_port = connection.host_port;
    emptied.opened_ns = connection.opened_ns;
    emptied.is_refused = connection.is_refused;
    for (const TrafficEvent& event : connection.events) room_ += event.bytes.size() + kBytesBeside;
  }
  return taken;
}

void RecordingRelay::wait_until_quiet(int quiet_ms, int patience_ms) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
  std::unique_lock<std::mutex> lock(mutex_);
  while (std::chrono::steady_clock::now() < end &&
         recorded_.wait_for(lock, std::chrono::milliseconds(quiet_ms)) == std::cv_status::no_timeout) {
  }
}

// Whether so many bytes more are kept. Once some were not, nothing is: a recording has no gaps.
bool RecordingRelay::make_room(size_t bytes) {
  const size_t wanted = bytes + kBytesBeside;
  recording_.is_cut = recording_.is_cut || wanted > room_;
  if (!recording_.is_cut) room_ -= wanted;
  return !recording_.is_cut;
}

void RecordingRelay::record(size_t connection, bool from_host, TrafficEvent::Kind kind, Bytes bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!make_room(bytes.size())) return;
  recording_.connections[connection].events.push_back({now_ns(), from_host, kind, std::move(bytes)});
  recorded_.notify_all();
}

void RecordingRelay::accept_host() {
  sockaddr_in peer{};
  socklen_t size = sizeof peer;
  const int host = accept4(listener_, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (host < 0) {
    const bool is_gone = errno == EAGAIN || errno == EINTR || errno == ECONNABORTED || errno == EPROTO;
    if (!is_gone) accept_error_ = errno;
    return;
  }
  size_t connection = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    connection = recording_.connections.size();
    if (make_room(0)) {
      recording_.connections.emplace_back();
      recording_.connections.back().host_port = ntohs(peer.sin_port);
      recording_.connections.back().opened_ns = now_ns();
    }
  }
  Reach reach;
  reach.descriptor = std::exchange(first_descriptor_, -1);
  if (reach.descriptor < 0) reach = reach_controller(address_, controller_port_, kLaterPatienceMs);
  const int controller = reach.descriptor;
  send_at_once(host);
  if (controller < 0) {
    // What this end lacked is no answer of the controller's.
    if (reach.own_error != 0) {
      accept_error_ = reach.own_error;
    } else {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (connection < recording_.connections.size()) recording_.connections[connection].is_refused = true;
    }
    int refused = host;
    close_with_reset(refused);
    return;
  }
  send_at_once(controller);
  links_.push_back(std::make_unique<Link>(connection, host, controller));
}

void RecordingRelay::pass_on(Link& link, bool from_host) {
  const ssize_t got = recv(link.side(from_host).descriptor, received_.data(), received_.size(), 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (got > 0) {
    Bytes bytes(received_.begin(), received_.begin() + got);
    Bytes& waiting = link.side(!from_host).waiting;
    waiting.insert(waiting.end(), bytes.begin(), bytes.end());
    record(link.connection(), from_host, TrafficEvent::Kind::kBytes, std::move(bytes));
    link.send_waiting(!from_host);
    return;
  }
  record(link.connection(), from_host, got == 0 ? TrafficEvent::Kind::kFinished : TrafficEvent::Kind::kReset, {});
  if (got < 0 || from_host || !link.side(from_host).is_read) {
    // A host that ends its connection has closed it; a side that ends a second time was reset.
    link.end(got < 0 || !from_host);
    return;
  }
  link.side(false).is_read = false;
  link.side(true).is_ending = true;
  link.send_waiting(true);
}

void RecordingRelay::serve(Link& link, short host_events, short controller_events) {
  for (const bool from_host : {true, false}) {
    const short events = from_host ? host_events : controller_events;
    if (!link.is_over() && (events & POLLOUT) != 0) link.send_waiting(from_host);
    const bool is_readable = (events & (POLLIN | POLLERR | POLLHUP)) != 0;
    if (!link.is_over() && is_readable) pass_on(link, from_host);
  }
}

// A thread hands no exception on: whoever asks for the recording gets it.
void RecordingRelay::run_in_memory() {
  try {
    run();
  } catch (const std::bad_alloc&) {
    is_out_of_memory_ = true;
    links_.clear();
  }
}

void RecordingRelay::run() {
  // A host whose connection nobody can take waits in vain: what the recording lacks is not the controller's doing.
  while (!is_stopping_ && accept_error_ == 0) {
    std::vector<pollfd> polled = {{wake_, POLLIN, 0}, {listener_, POLLIN, 0}};
    for (const auto& link : links_) {
      polled.push_back({link->side(true).descriptor, link->events(true), 0});
      polled.push_back({link->side(false).descriptor, link->events(false), 0});
    }
    if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) return;
    const size_t served = links_.size();
    for (size_t i = 0; i < served; ++i) serve(*links_[i], polled[2 + 2 * i].revents, polled[3 + 2 * i].revents);
    if ((polled[1].revents & POLLIN) != 0) accept_host();
    links_.erase(
        std::remove_if(links_.begin(), links_.end(), [](const std::unique_ptr<Link>& link) { return link->is_over(); }),
        links_.end());
  }
}

}  // namespace wire_trace
