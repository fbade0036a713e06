// Sends and receives on a socket that does not block.
#include "tools/plc_host/survey/probe.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "wire/big_endian.h"

namespace plc_host::survey {
namespace {

namespace wire = plc_sim::wire;
using plc_sim::Bytes;

constexpr int64_t kNsPerMs = 1000000;
constexpr size_t kMostReplyBytes = 16 * wire::kMaxFrameBytes;  // what sends more without an end is no controller

int64_t steady_ns() {
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(since).count();
}

constexpr size_t kLengthBytes = 4;

// The end that the head says, when it is one that can be: the length with its complement behind it.
std::optional<size_t> stated_end(const plc_sim::ByteView& view) {
  if (view.size() < 2 * kLengthBytes || view.u32(kLengthBytes) != ~view.u32(0)) return std::nullopt;
  const size_t end = size_t{view.u32(0)} + wire::kLengthExcludes;
  if (end < wire::kReplyHeadBytes || end > wire::kMaxFrameBytes) return std::nullopt;
  return end;
}

std::optional<size_t> stated_end(const Bytes& reply) { return stated_end(plc_sim::ByteView(reply)); }

bool is_numbered_as(const Bytes& request, const Bytes& frame) {
  return plc_sim::ByteView(frame).u16(wire::kSequenceAt) == plc_sim::ByteView(request).u16(wire::kSequenceAt);
}

// Where a whole frame begins that answers the request by its number, class and command, behind the first byte.
std::optional<size_t> own_frame_at(const Bytes& request, const Bytes& bytes) {
  const plc_sim::ByteView asked(request);
  for (size_t at = 1; at + wire::kReplyHeadBytes <= bytes.size(); ++at) {
    const plc_sim::ByteView rest = plc_sim::ByteView(bytes).part(at, bytes.size());
    const std::optional<size_t> end = stated_end(rest);
    const bool is_own = end && *end <= rest.size() && rest.u16(wire::kClassAt) == asked.u16(wire::kClassAt) &&
                        rest.u16(wire::kSequenceAt) == asked.u16(wire::kSequenceAt);
    if (is_own) return at;
  }
  return std::nullopt;
}

// The first bytes of the reply, which are none of it.
Bytes take_front(ProbeReply& reply, size_t bytes) {
  const auto end = reply.bytes.begin() + static_cast<std::ptrdiff_t>(bytes);
  Bytes front(reply.bytes.begin(), end);
  reply.bytes.erase(reply.bytes.begin(), end);
  while (bytes > 0 && !reply.pieces.empty()) {
    ReplyPiece& first = reply.pieces.front();
    const size_t taken = std::min(bytes, first.bytes);
    first.bytes -= taken;
    bytes -= taken;
    if (first.bytes == 0) reply.pieces.erase(reply.pieces.begin());
  }
  return front;
}

// Frames behind the one that answers: nobody asked for them.
void cut_frames_behind(ProbeReply& reply, size_t end) {
  Bytes behind(reply.bytes.begin() + static_cast<std::ptrdiff_t>(end), reply.bytes.end());
  const std::vector<Bytes> frames = take_whole_frames(behind);
  size_t cut = 0;
  for (const Bytes& frame : frames) cut += frame.size();
  if (cut == 0) return;
  reply.foreign.insert(reply.foreign.end(), frames.begin(), frames.end());
  reply.bytes.resize(end);
  reply.bytes.insert(reply.bytes.end(), behind.begin(), behind.end());
  while (cut > 0 && !reply.pieces.empty()) {
    const size_t taken = std::min(cut, reply.pieces.back().bytes);
    reply.pieces.back().bytes -= taken;
    cut -= taken;
    if (reply.pieces.back().bytes == 0) reply.pieces.pop_back();
  }
}

// Whether the bytes end inside a frame, or where nobody knows yet whether they do.
bool end_inside_frame(Bytes bytes) {
  take_whole_frames(bytes);
  return !bytes.empty() && (bytes.size() < 2 * kLengthBytes || stated_end(bytes));
}

// False when the time is over.
bool wait_for(int descriptor, short events, int64_t end_ns) {
  for (;;) {
    const int64_t left = end_ns - steady_ns();
    if (left <= 0) return false;
    pollfd awaited{descriptor, events, 0};
    const int ready = poll(&awaited, 1, static_cast<int>(left / kNsPerMs + 1));
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) return false;
  }
}

}  // namespace

std::vector<Bytes> take_whole_frames(Bytes& bytes) {
  std::vector<Bytes> frames;
  for (;;) {
    const std::optional<size_t> end = stated_end(bytes);
    if (!end || bytes.size() < *end) return frames;
    const auto behind = bytes.begin() + static_cast<std::ptrdiff_t>(*end);
    frames.emplace_back(bytes.begin(), behind);
    bytes.erase(bytes.begin(), behind);
  }
}

wire_trace::Reach Probe::connect(uint32_t address, uint16_t port, int patience_ms) {
  close();
  wire_trace::Reach reach = wire_trace::reach_controller(address, port, patience_ms);
  descriptor_ = reach.descriptor;
  if (descriptor_ < 0) {
    if (reach.is_refused) capture_.refused(number_, 0);
    return reach;
  }
  const int on = 1;
  setsockopt(descriptor_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in own{};
  socklen_t size = sizeof own;
  getsockname(descriptor_, reinterpret_cast<sockaddr*>(&own), &size);
  capture_.opened(number_, ntohs(own.sin_port));
  return reach;
}

bool Probe::send_all(const Bytes& request) {
  constexpr int64_t kSendPatienceNs = 2000 * kNsPerMs;
  const int64_t end_ns = steady_ns() + kSendPatienceNs;
  for (size_t at = 0; at < request.size();) {
    const ssize_t sent = send(descriptor_, request.data() + at, request.size() - at, MSG_NOSIGNAL);
    if (sent > 0) {
      at += static_cast<size_t>(sent);
    } else if (errno == EAGAIN) {
      if (!wait_for(descriptor_, POLLOUT, end_ns)) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  capture_.received(number_, request);
  return true;
}

// False when the connection has ended.
bool Probe::receive_piece(ProbeReply& reply, int64_t start_ns) {
  std::array<uint8_t, 65536> buffer{};
  const ssize_t got = recv(descriptor_, buffer.data(), buffer.size(), 0);
  if (got > 0) {
    const Bytes piece(buffer.begin(), buffer.begin() + got);
    reply.pieces.push_back({static_cast<double>(steady_ns() - start_ns) / kNsPerMs, piece.size()});
    reply.bytes.insert(reply.bytes.end(), piece.begin(), piece.end());
    capture_.sent(number_, piece);
    return true;
  }
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  reply.end = got == 0 ? ProbeReply::End::kClosed : ProbeReply::End::kReset;
  if (got == 0) {
    capture_.finished(number_, false);
  } else {
    capture_.reset(number_, false);
  }
  return false;
}

ProbeReply Probe::exchange(const Bytes& request, ReplyWait wait, bool finishes_sending) {
  ProbeReply reply;
  reply.end = ProbeReply::End::kReset;
  if (!is_open()) return reply;
  const int64_t start_ns = steady_ns();
  if (!send_all(request)) {
    close();
    return reply;
  }
  if (finishes_sending) {
    shutdown(descriptor_, SHUT_WR);
    capture_.finished(number_, true);
  }
  receive_reply(request, wait, start_ns, reply);
  return reply;
}

// What came late behind the reply before stands in front of this one. It is no part of it.
bool Probe::put_stray_aside(const Bytes& request, ProbeReply& reply) {
  const std::optional<size_t> at = own_frame_at(request, reply.bytes);
  if (!at) return false;
  const Bytes stray = take_front(reply, *at);
  reply.before.insert(reply.before.end(), stray.begin(), stray.end());
  return true;
}

// A frame with another number is the answer only where no own one comes behind it in time, and that wait is shorter
// than the one for answers: where replies repeat the number it never is.
void Probe::receive_reply(const Bytes& request, ReplyWait wait, int64_t start_ns, ProbeReply& reply) {
  int64_t end_ns = start_ns + wait.timeout_ms * kNsPerMs;
  std::optional<ProbeReply> other;
  for (;;) {
    receive_frame(reply, start_ns, end_ns);
    if (wait.own_ms > 0 && reply.end == ProbeReply::End::kQuiet && put_stray_aside(request, reply)) {
      reply.end = ProbeReply::End::kWhole;
    }
    if (reply.end != ProbeReply::End::kWhole || wait.own_ms == 0) break;
    const size_t end = *stated_end(reply.bytes);
    if (is_numbered_as(request, reply.bytes)) {
      finish_frames(reply, start_ns);
      cut_frames_behind(reply, end);
      return;
    }
    if (wait.own_ms < wait.timeout_ms && !other) {
      other = reply;
      end_ns = std::min(end_ns, steady_ns() + wait.own_ms * kNsPerMs);
    }
    reply.foreign.push_back(take_front(reply, end));
  }
  if (other && !reply.has_come()) reply = *other;
}

// A frame behind the one that answers comes in pieces too.
void Probe::finish_frames(ProbeReply& reply, int64_t start_ns) {
  while (is_open() && reply.bytes.size() < kMostReplyBytes && end_inside_frame(reply.bytes)) {
    if (!wait_for(descriptor_, POLLIN, steady_ns() + kQuietMs * kNsPerMs)) return;
    ProbeReply more;
    if (!receive_piece(more, start_ns)) return close();
    reply.pieces.insert(reply.pieces.end(), more.pieces.begin(), more.pieces.end());
    reply.bytes.insert(reply.bytes.end(), more.bytes.begin(), more.bytes.end());
  }
}

void Probe::receive_frame(ProbeReply& reply, int64_t start_ns, int64_t end_ns) {
  reply.end = ProbeReply::End::kSilent;
  for (;;) {
    const std::optional<size_t> stated = stated_end(reply.bytes);
    if (stated && reply.bytes.size() >= *stated) {
      reply.end = ProbeReply::End::kWhole;
      return;
    }
    // Of a short first piece nobody knows yet what it says of its end.
    const bool is_endless = reply.bytes.size() >= 2 * kLengthBytes && !stated;
    const int64_t wait_end = is_endless ? std::min(end_ns, steady_ns() + kQuietMs * kNsPerMs) : end_ns;
    if (reply.bytes.size() > kMostReplyBytes || !wait_for(descriptor_, POLLIN, wait_end)) {
      if (is_endless) reply.end = ProbeReply::End::kQuiet;
      return;
    }
    if (!receive_piece(reply, start_ns)) return close();
  }
}

Bytes Probe::drain() {
  ProbeReply unasked;
  while (is_open() && unasked.bytes.size() < kMostReplyBytes) {
    pollfd awaited{descriptor_, POLLIN, 0};
    if (poll(&awaited, 1, 0) <= 0) break;
    if (!receive_piece(unasked, steady_ns())) close();
  }
  finish_frames(unasked, steady_ns());
  return unasked.bytes;
}

std::optional<int> Probe::segment_bytes() const {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  if (!is_open() || getsockopt(descriptor_, IPPROTO_TCP, TCP_MAXSEG, &bytes, &size) != 0) return std::nullopt;
  // What the controller announced counts the time stamps that stand in each segment.
  constexpr int kTimeStampBytes = 12;
  tcp_info info{};
  size = sizeof info;
  if (getsockopt(descriptor_, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return bytes;
  return (info.tcpi_options & TCPI_OPT_TIMESTAMPS) != 0 ? bytes + kTimeStampBytes : bytes;
}

void Probe::close() {
  if (descriptor_ < 0) return;
  ::close(descriptor_);
  descriptor_ = -1;
  capture_.closed(number_);
}

}  // namespace plc_host::survey
