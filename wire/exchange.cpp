// Cuts the bytes of each connection into requests and what came back.
#include "wire/exchange.h"

#include <algorithm>

#include "wire/framing.h"
#include "wire/reply_parts.h"

namespace wire_trace {
namespace {

using plc_sim::FrameEnd;

// Walks the events of one connection.
class Cutter {
 public:
  Cutter(size_t connection, std::vector<Exchange>& exchanges)
      : connection_(connection), exchanges_(exchanges), burst_(exchanges.size()) {}

  void add(const TrafficEvent& event) {
    if (event.from_host && event.kind == TrafficEvent::Kind::kBytes) {
      if (pending_.empty()) pending_ns_ = event.time_ns;
      pending_.insert(pending_.end(), event.bytes.begin(), event.bytes.end());
      cut(false);
      return;
    }
    cut(true);
    if (current_ == kNothing) return;
    Exchange& exchange = exchanges_[current_];
    if (event.kind == TrafficEvent::Kind::kBytes) {
      hand_out(event.time_ns, event.bytes);
      burst_ = exchanges_.size();
    } else if (exchange.ending == Ending::kNone) {
      exchange.ending = ending_of(event);
      exchange.ending_ns = event.time_ns;
    }
  }

  void finish() { cut(true); }

 private:
  static constexpr size_t kNothing = SIZE_MAX;

  static Ending ending_of(const TrafficEvent& event) {
    if (event.from_host) return Ending::kClosedByHost;
    return event.kind == TrafficEvent::Kind::kReset ? Ending::kReset : Ending::kClosedByController;
  }

  // Requests that were sent without waiting for a reply get the replies that name them; the last one gets the rest.
  void hand_out(int64_t time_ns, Bytes bytes) {
    for (size_t i = burst_; i < current_; ++i) {
      const ReplyHead head = head_of(bytes);
      if (head.is_reply && answers(head, exchanges_[i].request_bytes) && head.announced < bytes.size()) {
        const auto behind = bytes.begin() + static_cast<std::ptrdiff_t>(head.announced);
        exchanges_[i].pieces.push_back({time_ns, Bytes(bytes.begin(), behind)});
        bytes.erase(bytes.begin(), behind);
      }
    }
    exchanges_[current_].pieces.push_back({time_ns, std::move(bytes)});
  }

  void cut(bool is_quiet) {
    while (!pending_.empty()) {
      const FrameEnd end = plc_sim::find_frame_end(pending_, is_quiet);
      if (!end.is_complete) return;
      const auto behind = pending_.begin() + static_cast<std::ptrdiff_t>(end.bytes);
      Exchange exchange;
      exchange.connection = connection_;
      exchange.request_ns = pending_ns_;
      exchange.request_bytes.assign(pending_.begin(), behind);
      plc_sim::Findings form;
      exchange.request = plc_sim::parse_request(exchange.request_bytes, form);
      exchange.oddities = std::move(form.violations);
      pending_.erase(pending_.begin(), behind);
      current_ = exchanges_.size();
      exchanges_.push_back(std::move(exchange));
    }
  }

  size_t connection_;
  std::vector<Exchange>& exchanges_;
  Bytes pending_;
  int64_t pending_ns_ = 0;
  size_t current_ = kNothing;
  size_t burst_ = 0;  // the first request since the controller spoke
};

}  // namespace

Bytes Exchange::reply() const {
  Bytes all;
  for (const Piece& piece : pieces) all.insert(all.end(), piece.bytes.begin(), piece.bytes.end());
  return all;
}

std::optional<Bytes> Exchange::own_reply() const {
  Bytes rest = reply();
  for (ReplyHead head = head_of(rest); head.is_reply && head.announced <= rest.size(); head = head_of(rest)) {
    const auto behind = rest.begin() + static_cast<std::ptrdiff_t>(head.announced);
    if (answers(head, request_bytes)) return Bytes(rest.begin(), behind);
    rest.erase(rest.begin(), behind);
  }
  return std::nullopt;
}

bool Exchange::is_echo() const {
  const bool is_for_directory =
      request.kind == plc_sim::RequestKind::kDirectoryStart || request.kind == plc_sim::RequestKind::kDirectory;
  return !is_for_directory && is_answered() && reply() == request_bytes;
}

std::optional<int64_t> Exchange::time_ns() const {
  return pieces.empty() ? std::nullopt : std::optional<int64_t>(pieces.front().time_ns - request_ns);
}

std::vector<Exchange> find_exchanges(const Recording& recording) {
  std::vector<Exchange> exchanges;
  for (size_t i = 0; i < recording.connections.size(); ++i) {
    Cutter cutter(i, exchanges);
    for (const TrafficEvent& event : recording.connections[i].events) cutter.add(event);
    cutter.finish();
  }
  std::stable_sort(exchanges.begin(), exchanges.end(),
                   [](const Exchange& a, const Exchange& b) { return a.request_ns < b.request_ns; });
  return exchanges;
}

}  // namespace wire_trace
