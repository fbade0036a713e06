// Traffic of connections as it may have been recorded: cut into exchanges, judged, and put into words.
#include <string>

#include "base/text.h"
#include "fuzz_input.h"
#include "judge.h"
#include "traffic_words.h"
#include "wire/exchange.h"
#include "wire/judgement.h"
#include "wire/reply_parts.h"

namespace {

using fuzz::demand;
using plc_sim::Bytes;
using wire_trace::Connection;
using wire_trace::Exchange;
using wire_trace::Recording;
using wire_trace::TrafficEvent;

constexpr size_t kMostEvents = 10;

Recording recording_of(fuzz::Input& input) {
  Recording recording;
  recording.connections.resize(1 + input.byte() % 2);
  int64_t now = 0;
  for (size_t i = 0; i < kMostEvents && !input.empty(); ++i) {
    const uint8_t what = input.byte();
    Connection& connection = recording.connections[what % recording.connections.size()];
    now += (what >> 6U) * int64_t{700000};
    TrafficEvent event;
    event.time_ns = now;
    event.from_host = (what & 2U) != 0;
    const unsigned kind = what >> 2U & 7U;
    if (kind == 7) event.kind = (what & 0x20U) != 0 ? TrafficEvent::Kind::kReset : TrafficEvent::Kind::kFinished;
    if (kind == 6) {
      event.bytes.resize(input.byte());
      event.bytes.resize(input.copy_bytes(event.bytes.data(), event.bytes.size()));
    } else if (kind < 6) {
      event.bytes = event.from_host ? fuzz::request_of(input) : fuzz::reply_of(input);
      if (kind % 2 == 1) event.bytes = fuzz::damaged(input, event.bytes);
    }
    connection.events.push_back(std::move(event));
  }
  return recording;
}

size_t bytes_of(const Connection& connection, bool from_host) {
  size_t bytes = 0;
  for (const TrafficEvent& event : connection.events) {
    if (event.from_host == from_host && event.kind == TrafficEvent::Kind::kBytes) bytes += event.bytes.size();
  }
  return bytes;
}

// What hosts sent is in requests, all of it; what came back is in replies, but for what came before any request.
void judge_sums(const Recording& recording, const std::vector<Exchange>& exchanges) {
  for (size_t i = 0; i < recording.connections.size(); ++i) {
    size_t sent = 0;
    size_t received = 0;
    for (const Exchange& exchange : exchanges) {
      if (exchange.connection != i) continue;
      sent += exchange.request_bytes.size();
      for (const wire_trace::Piece& piece : exchange.pieces) received += piece.bytes.size();
    }
    demand(sent == bytes_of(recording.connections[i], true), "requests are what the host sent");
    demand(received <= bytes_of(recording.connections[i], false), "replies are what the controller sent");
  }
}

void judge_parts(const Exchange& exchange) {
  const Bytes reply = exchange.reply();
  demand(wire_trace::programs_of(reply).size() <= 255, "a directory counts 255 at most");
  const auto names = wire_trace::names_of(exchange.request);
  demand(wire_trace::records_of(reply, names.size()).size() == names.size(), "a record for each name");
  for (const size_t refused : wire_trace::refused_names(exchange)) demand(refused < names.size(), "names are refused");
  size_t values = 0;
  for (size_t i = 0; i <= exchange.request.references.size(); ++i) {
    const Bytes value = wire_trace::value_of(exchange.request, reply, i);
    values += value.size();
    demand(wire_trace::in_host_order(value).size() == value.size(), "order changes no length");
  }
  demand(values <= wire_trace::values_bytes(exchange.request) && values <= reply.size(), "values lie in the reply");
  demand(wire_trace::hex_text(reply, 8).size() <= 64, "so many bytes at most");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const Recording recording = recording_of(input);
  const std::vector<Exchange> exchanges = wire_trace::find_exchanges(recording);
  judge_sums(recording, exchanges);
  for (size_t i = 0; i < exchanges.size(); ++i) {
    if (i > 0) demand(exchanges[i - 1].request_ns <= exchanges[i].request_ns, "exchanges are in their order");
    judge_parts(exchanges[i]);
    for (const wire_trace::Remark& remark : wire_trace::judge_exchange(exchanges, i, i + 1)) {
      demand(remark.what.rfind("exchange " + std::to_string(i + 1) + " (", 0) == 0, "a remark names its exchange");
      demand(!remark.advice.empty(), "a remark has advice");
    }
    demand(exchanges[i].time_ns().has_value() == exchanges[i].is_answered(), "an answer has its time");
  }
  return 0;
}
