// The watched calls stand in this program, in front of the C library's: the driver, a shared library, binds to them.
#include "faults/exchange_tap.h"

#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

namespace plc_test {
namespace {

constexpr size_t kKeptLines = 320;
constexpr size_t kNoteBytes = 200;
constexpr size_t kHeadBytes = 12;
constexpr size_t kSequenceAt = 8;
constexpr size_t kMostBytes = 4096;  // of a request, of a reply
constexpr size_t kDrainBytes = 512;

long now_us() {
  static const auto start = std::chrono::steady_clock::now();
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count());
}

int bytes_waiting(int socket_fd) {
  int count = 0;
  return ioctl(socket_fd, FIONREAD, &count) == 0 ? count : 0;
}

uint32_t big_endian32(const Bytes& bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) << 24U | static_cast<uint32_t>(bytes[at + 1]) << 16U |
         static_cast<uint32_t>(bytes[at + 2]) << 8U | bytes[at + 3];
}

// Memory that is there from the beginning: what is kept must not look like a leak that fills slowly.
void touch(Bytes* bytes, size_t count) {
  bytes->assign(count, 0);
  bytes->clear();
}

void print_bytes(std::FILE* out, const Bytes& bytes) {
  std::fprintf(out, "%zu bytes", bytes.size());
  for (const uint8_t byte : bytes) {
    std::fprintf(out, " %02x", byte);
  }
  std::fputc('\n', out);
}

void print(std::FILE* out, const Exchange& exchange) {
  std::fprintf(out, "exchange %lu, connection %lu, socket %d%s\n", static_cast<unsigned long>(exchange.number),
               exchange.connection, exchange.socket_fd, exchange.is_own_reply ? "" : ": NOT ANSWERED BY ITS OWN REPLY");
  std::fprintf(out, "  %ld drain, %d waiting, takes ", exchange.drain_us, exchange.waiting);
  print_bytes(out, exchange.drained);
  std::fprintf(out, "  %ld send, %d waiting: ", exchange.sent_us, exchange.left_behind);
  print_bytes(out, exchange.request);
  if (exchange.has_received) {
    std::fprintf(out, "  %ld receive: ", exchange.received_us);
    print_bytes(out, exchange.reply);
  } else {
    std::fprintf(out, "  no reply\n");
  }
}

}  // namespace

Exchange::Exchange() {
  touch(&drained, kDrainBytes);
  touch(&request, kMostBytes);
  touch(&reply, kMostBytes);
}

void Exchange::clear() {
  drained.clear();
  request.clear();
  reply.clear();
  waiting = left_behind = 0;
  sent_us = received_us = 0;
  has_received = is_own_reply = false;
}

bool is_reply_to(const Bytes& request, const Bytes& reply) {
  if (reply.size() < kHeadBytes || request.size() < kHeadBytes) {
    return false;
  }
  constexpr uint32_t kUncountedBytes = 10;
  const uint32_t length = big_endian32(reply, 0);
  return length + kUncountedBytes == reply.size() && big_endian32(reply, sizeof length) == ~length &&
         std::equal(reply.begin() + kSequenceAt, reply.begin() + kHeadBytes, request.begin() + kSequenceAt);
}

ExchangeTap& ExchangeTap::instance() {
  static ExchangeTap tap;
  return tap;
}

ExchangeTap::ExchangeTap() : lines_(kKeptLines) {
  for (Line& line : lines_) {
    line.note.assign(kNoteBytes, ' ');
  }
}

void ExchangeTap::observe(Observer observer, void* context) {
  observer_ = observer;
  context_ = context;
}

ExchangeTap::Line& ExchangeTap::next_line() { return lines_[line_count_++ % kKeptLines]; }

void ExchangeTap::note(const std::string& text) {
  Line& line = next_line();
  line.is_note = true;
  line.note = std::to_string(now_us()) + " " + text;
}

void ExchangeTap::print_last(std::FILE* out) const {
  for (uint64_t i = line_count_ > kKeptLines ? line_count_ - kKeptLines : 0; i < line_count_; ++i) {
    const Line& line = lines_[i % kKeptLines];
    if (line.is_note) {
      std::fprintf(out, "%s\n", line.note.c_str());
    } else {
      print(out, line.exchange);
    }
  }
}

void ExchangeTap::end_exchange() {
  if (!is_open_) {
    return;
  }
  is_open_ = false;
  current_.is_own_reply = current_.has_received && is_reply_to(current_.request, current_.reply);
  Line& line = next_line();
  line.is_note = false;
  line.exchange = current_;
  if (observer_ != nullptr) {
    observer_(context_, current_);
  }
}

void ExchangeTap::on_connect(int socket_fd) {
  end_exchange();
  ++connections_;
  note("connection " + std::to_string(connections_) + " on socket " + std::to_string(socket_fd));
}

void ExchangeTap::on_drain(int socket_fd) {
  end_exchange();
  is_open_ = true;
  current_.clear();
  current_.number = exchanges_++;
  current_.connection = connections_;
  current_.socket_fd = socket_fd;
  current_.drain_us = now_us();
  current_.waiting = bytes_waiting(socket_fd);
}

void ExchangeTap::on_send(int socket_fd, const uint8_t* bytes, size_t count) {
  if (!is_current(socket_fd)) {
    return;
  }
  current_.left_behind = bytes_waiting(socket_fd);
  current_.request.assign(bytes, bytes + count);
  current_.sent_us = now_us();
}

void ExchangeTap::on_receive(int socket_fd, const uint8_t* bytes, size_t count) {
  if (!is_current(socket_fd)) {
    return;
  }
  if (current_.request.empty()) {
    current_.drained.assign(bytes, bytes + count);
    return;
  }
  current_.reply.assign(bytes, bytes + count);
  current_.has_received = true;
  current_.received_us = now_us();
  end_exchange();
}

}  // namespace plc_test

using plc_test::ExchangeTap;

extern "C" {
#pragma GCC visibility push(default)

int connect(int socket_fd, const sockaddr* address, socklen_t length) {
  ExchangeTap::instance().on_connect(socket_fd);
  return static_cast<int>(syscall(SYS_connect, socket_fd, address, length));
}

// A look that does not wait is the drain's; one that asks for writing too is the connect's.
int select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
  if (writable == nullptr && timeout->tv_sec == 0 && timeout->tv_usec == 0) {
    ExchangeTap::instance().on_drain(count - 1);
  }
  constexpr long kNanosecondsPerMicrosecond = 1000;
  const timespec wait = {timeout->tv_sec, timeout->tv_usec * kNanosecondsPerMicrosecond};
  return pselect(count, readable, writable, failed, &wait, nullptr);
}

ssize_t send(int socket_fd, const void* bytes, size_t count, int flags) {
  ExchangeTap::instance().on_send(socket_fd, static_cast<const uint8_t*>(bytes), count);
  return sendto(socket_fd, bytes, count, flags, nullptr, 0);
}

ssize_t recv(int socket_fd, void* bytes, size_t count, int flags) {
  const ssize_t received = recvfrom(socket_fd, bytes, count, flags, nullptr, nullptr);
  if (received >= 0) {
    ExchangeTap::instance().on_receive(socket_fd, static_cast<const uint8_t*>(bytes), static_cast<size_t>(received));
  }
  return received;
}

#pragma GCC visibility pop
}
