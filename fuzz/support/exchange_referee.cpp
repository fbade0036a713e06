// The rules of the guarded exchange, written down a second time.
#include "exchange_referee.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {
namespace {

constexpr size_t kHeadBytes = 14;
constexpr int64_t kSecondNs = 1000000000;
constexpr int64_t kMicrosecondNs = 1000;
constexpr uint32_t kMostWaiting = 65536;
constexpr uint32_t kNoSequence = 0x10000;

uint32_t word_at(const uint8_t* bytes) { return static_cast<uint32_t>(bytes[0]) << 8 | bytes[1]; }

uint32_t long_at(const uint8_t* bytes) { return word_at(bytes) << 16 | word_at(bytes + 2); }

// Length of the frame that a head announces, 0 when it is none.
size_t announced_bytes(const uint8_t* head) {
  const uint32_t counted = long_at(head);
  for (size_t i = 0; i < 4; ++i) {
    if ((head[i] ^ head[i + 4]) != 0xFF) return 0;
  }
  return counted >= 4 && counted <= 4086 ? counted + 10 : 0;
}

bool has_all_programs(const uint8_t* reply, size_t length) {
  if (length < 15) return false;
  size_t at = 15;
  for (unsigned left = reply[14]; left > 0; --left) {
    if (at + 5 > length) return false;
    const size_t size = reply[at + 2];
    if (size > 2 && at + 3 + size > length) return false;
    at += size > 2 ? size + 4 : 6;
  }
  return true;
}

bool has_asked_values(const Exchange& read) {
  size_t units = 0;
  for (size_t at = 18; at < read.request_bytes; at += 8) units += read.request[at + 3];
  return read.reply_bytes == kHeadBytes + 2 * units;
}

Content content_of(const Exchange& exchange) {
  if (exchange.reply[12] != 0 || exchange.reply[13] != 0) return Content::kRefused;
  bool is_whole = true;
  if (exchange.is_read()) {
    is_whole = has_asked_values(exchange);
  } else if (exchange.is_resolve()) {
    const uint32_t names = names_asked(exchange.request);
    is_whole = names == 0 || name_record(exchange, names - 1) != 0;
  } else if (exchange.kind() == 0x0C25) {
    is_whole = has_all_programs(exchange.reply, exchange.reply_bytes);
  }
  return is_whole ? Content::kGood : Content::kIncomplete;
}

}  // namespace

Referee referee;

void accuse(const char* what) {
  fprintf(stderr, "the driver %s\n", what);
  abort();
}

uint32_t names_asked(const uint8_t* request) { return word_at(request + (request[14] == 0 ? 16 : 22)); }

uint32_t name_record(const Exchange& resolve, uint32_t name) {
  uint32_t at = 17;
  for (;; --name) {
    if (at + 24 > resolve.reply_bytes) return 0;
    const uint32_t next = at + 24 + 4 * resolve.reply[at + 23];
    if (next > resolve.reply_bytes) return 0;
    if (name == 0) return at;
    at = next;
  }
}

void Referee::begin_transfer() {
  has_failed_ = false;
  count_ = 0;
  stored_ = 0;
}

void Referee::begin_run(bool is_connected) {
  begin_transfer();
  phase_ = is_connected ? Phase::kIdle : Phase::kClosed;
  last_sequence_ = kNoSequence;
  is_drained_ = false;
  discarded_ = 0;
}

void Referee::connects() {
  if (is_open()) accuse("connects while its last socket is open");
  phase_ = Phase::kIdle;
  is_drained_ = false;
  discarded_ = 0;
}

void Referee::waits(int64_t timeout_ns, int64_t now_ns) {
  was_readable_ = false;
  if (phase_ == Phase::kIdle) {
    if (timeout_ns != 0) accuse("waits although no reply is owed");
    return;
  }
  if (phase_ != Phase::kPending) accuse("waits although the exchange has failed");
  if (is_last_look_) accuse("looks again when the time is up");
  if (timeout_ns < 0 || (timeout_ns > 0 && now_ns + timeout_ns > deadline_ns_)) accuse("waits for too long");
  is_last_look_ = timeout_ns == 0;
}

void Referee::got_wait(int result) {
  was_readable_ = result > 0;
  if (phase_ == Phase::kIdle) {
    is_drained_ = result <= 0;
  } else if (result < 0) {
    must_close();
  } else if (result == 0 || is_last_look_) {
    may_give_up_ = true;
  }
}

void Referee::sends(const uint8_t* bytes, size_t length, int64_t now_ns, uint32_t wait_s) {
  if (phase_ != Phase::kIdle) accuse("sends although the exchange before has failed");
  if (!is_drained_) accuse("sends before everything that waits is discarded");
  if (count_ > 0 && exchanges_[count_ - 1].content != Content::kGood) {
    accuse("goes on behind a reply that is no answer");
  }
  if (length < kHeadBytes || length > kFrameBytes) accuse("sends a request of an impossible size");
  for (size_t i = 0; i < 4; ++i) {
    if ((bytes[i] ^ bytes[i + 4]) != 0xFF) accuse("sends a wrong complement");
  }
  if (count_ == kMostExchanges) accuse("sends without end");
  Exchange& exchange = exchanges_[count_];
  exchange = {storage_ + stored_, static_cast<uint32_t>(length), nullptr, 0, Content::kIncomplete};
  memcpy(storage_ + stored_, bytes, length);
  const uint32_t sequence = word_at(bytes + 8);
  if (exchange.is_directory()) {
    if (sequence != (exchange.kind() == 0x0C25 ? 1 : 0)) accuse("numbers a directory request wrong");
  } else if (sequence == last_sequence_) {
    accuse("uses a sequence number twice");
  } else {
    last_sequence_ = sequence;
  }
  phase_ = Phase::kPending;
  is_drained_ = false;
  is_last_look_ = false;
  may_give_up_ = false;
  received_ = 0;
  deadline_ns_ = now_ns + kSecondNs * (wait_s < INT32_MAX ? wait_s : INT32_MAX);
}

void Referee::receives() const {
  if (phase_ != Phase::kIdle && phase_ != Phase::kPending) accuse("receives although the exchange has failed");
  if (!was_readable_) accuse("receives what may never come");
}

void Referee::got_bytes(const uint8_t* bytes, size_t count) {
  was_readable_ = false;
  if (phase_ == Phase::kIdle) {
    discarded_ += static_cast<uint32_t>(count);
    if (discarded_ > kMostWaiting) must_close();
    return;
  }
  if (received_ + count > kFrameBytes) accuse("has no room for what it receives");
  memcpy(frame_ + received_, bytes, count);
  received_ += count;
  look_at_bytes();
}

void Referee::look_at_bytes() {
  const uint8_t* const request = exchanges_[count_].request;
  size_t at = 0;
  while (phase_ == Phase::kPending && received_ - at >= 8) {
    const uint8_t* const frame = frame_ + at;
    const size_t bytes = announced_bytes(frame);
    if (bytes == 0) return must_close();
    if (received_ - at < bytes) break;
    if (memcmp(frame + 8, request + 8, 2) == 0) {
      if (memcmp(frame + 10, request + 10, 2) != 0 || received_ - at > bytes) return must_close();
      memmove(frame_, frame, bytes);
      if (bytes < kFrameBytes) return take_answer(bytes);
      phase_ = Phase::kMustPeek;
      return;
    }
    at += bytes;
  }
  received_ -= at;
  memmove(frame_, frame_ + at, received_);
}

void Referee::take_answer(size_t bytes) {
  Exchange& exchange = exchanges_[count_++];
  uint8_t* const place = storage_ + stored_ + exchange.request_bytes;
  memcpy(place, frame_, bytes);
  exchange.reply = place;
  exchange.reply_bytes = static_cast<uint32_t>(bytes);
  exchange.content = content_of(exchange);
  stored_ += exchange.request_bytes + bytes;
  if (stored_ + 2 * kFrameBytes > sizeof storage_) accuse("sends without end");
  phase_ = Phase::kIdle;
  is_drained_ = false;
  discarded_ = 0;
}

void Referee::peeks(size_t length, bool is_waiting) const {
  if (phase_ != Phase::kMustPeek || length != 1) accuse("peeks where nothing asks for it");
  if (is_waiting) accuse("peeks and may wait for ever");
}

void Referee::got_peek(bool has_more) {
  if (has_more) return must_close();
  take_answer(kFrameBytes);
}

void Referee::got_end() { must_close(); }

void Referee::got_send_error() {
  if (phase_ != Phase::kIdle) accuse("sends although the exchange before has failed");
  if (!is_drained_) accuse("sends before everything that waits is discarded");
  must_close();
}

void Referee::closes(int64_t now_ns) {
  if (!is_open()) accuse("closes what is not open");
  if (phase_ == Phase::kMustPeek) accuse("does not look behind a reply of the largest size");
  const bool is_late = now_ns + kMicrosecondNs > deadline_ns_;
  if (phase_ == Phase::kPending && !(may_give_up_ && is_late)) accuse("gives up before the time is over");
  if (phase_ == Phase::kIdle) {
    const bool has_bad_directory =
        count_ > 0 && exchanges_[count_ - 1].is_directory() && exchanges_[count_ - 1].content != Content::kGood;
    if (!has_bad_directory) accuse("closes a good connection");
  }
  phase_ = Phase::kClosed;
  has_failed_ = true;
}

void Referee::asks_time(bool is_monotonic) const {
  if (!is_monotonic) accuse("takes the time from a clock that can be set");
}

void Referee::must_close() {
  phase_ = Phase::kMustClose;
  has_failed_ = true;
}

}  // namespace fuzz
