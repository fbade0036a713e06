// The rule of reply_order.h, exchange by exchange.
#include "faults/reply_order.h"

#include <algorithm>

namespace plc_test {
namespace {

constexpr size_t kDrainBytes = 512;
constexpr size_t kSequenceAt = 8;
constexpr size_t kClassAt = 10;
constexpr size_t kCommandAt = 11;
constexpr uint8_t kClassNames = 0x0C;
constexpr uint8_t kClassValues = 0x1E;
constexpr uint8_t kClassSet = 0x32;
constexpr uint8_t kClassReset = 0x33;
constexpr uint8_t kCommandResolve = 0x28;
constexpr uint8_t kCommandRead = 0x09;

bool is_about_names(const Bytes& request) { return request.size() > kCommandAt && request[kClassAt] == kClassNames; }

bool is_resolve(const Bytes& request) { return is_about_names(request) && request[kCommandAt] == kCommandResolve; }

// A connect's, not a transfer's: a transfer that does not fit a frame sends nothing behind it.
bool is_directory(const Bytes& request) { return is_about_names(request) && request[kCommandAt] != kCommandResolve; }

bool is_write(const Bytes& request) {
  if (request.size() <= kCommandAt) {
    return false;
  }
  const uint8_t first = request[kClassAt];
  const bool is_value_write = first == kClassValues && request[kCommandAt] != kCommandRead;
  return is_value_write || first == kClassSet || first == kClassReset;
}

uint16_t sequence_of(const Bytes& frame) {
  return static_cast<uint16_t>(frame[kSequenceAt] << 8U | frame[kSequenceAt + 1]);
}

}  // namespace

void ReplyOrder::faults_end() {
  has_faults_ = false;
  is_in_step_ = false;
  in_a_row_ = 0;
}

void ReplyOrder::begin_call() {
  call_exchanges_ = 0;
  call_in_step_ = true;
  call_is_own_ = true;
  wrote_astray_ = false;
  replies_.clear();
}

void ReplyOrder::fail(const Exchange& exchange, const char* what) {
  if (error_.empty()) {
    error_ = "exchange " + std::to_string(exchange.number) + ": " + what;
  }
}

void ReplyOrder::check_drain(const Exchange& exchange) {
  const size_t waiting = static_cast<size_t>(exchange.waiting);
  if (exchange.drained.size() < std::min(waiting, kDrainBytes) || exchange.drained.size() > kDrainBytes) {
    fail(exchange, "the drain left bytes that waited, or took too many");
  }
}

void ReplyOrder::keep_reply(const Exchange& exchange) {
  if (is_resolve(exchange.request)) {
    replies_.clear();
  }
  if (replies_.size() < exchange.reply.size()) {
    replies_.resize(exchange.reply.size());
  }
  std::copy(exchange.reply.begin(), exchange.reply.end(), replies_.begin());
}

void ReplyOrder::count_out_of_step(const Exchange& exchange) {
  ++figures_.out_of_step;
  figures_.longest = std::max(figures_.longest, ++in_a_row_);
  size_t behind = 0;
  if (exchange.reply.size() > kCommandAt && exchange.request.size() > kCommandAt) {
    const auto distance = static_cast<uint16_t>(sequence_of(exchange.request) - sequence_of(exchange.reply));
    behind = distance < figures_.behind.size() ? distance : 0;
  }
  ++figures_.behind[behind];
}

void ReplyOrder::take_step(const Exchange& exchange) {
  if (has_faults_) {
    return;
  }
  if (is_in_step_) {
    ++figures_.in_step;
    figures_.unanswered += exchange.has_received ? 0U : 1U;
    figures_.closed += exchange.has_received && exchange.reply.empty() ? 1U : 0U;
    if (!exchange.reply.empty() && !exchange.is_own_reply) {
      fail(exchange, "in step, and not answered by its own reply");
    }
  } else if (exchange.is_own_reply) {
    is_in_step_ = true;
  } else {
    count_out_of_step(exchange);
  }
}

void ReplyOrder::observe(const Exchange& exchange) {
  if (exchange.connection != connection_) {
    connection_ = exchange.connection;
    is_in_step_ = true;
    in_a_row_ = 0;
  }
  check_drain(exchange);
  call_exchanges_ += is_directory(exchange.request) ? 0U : 1U;
  if (is_write(exchange.request) && !call_is_own_) {
    wrote_astray_ = true;
    ++figures_.astray;
  }
  take_step(exchange);
  call_is_own_ = call_is_own_ && exchange.is_own_reply;
  call_in_step_ = call_in_step_ && exchange.is_own_reply && is_in_step();
  keep_reply(exchange);
}

}  // namespace plc_test
