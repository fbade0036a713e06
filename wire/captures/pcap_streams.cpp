// Puts the bytes of each TCP connection in order.
#include "wire/captures/pcap_streams.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "wire/captures/packets.h"
#include "wire/captures/segment.h"

namespace plc_sim {
namespace {

constexpr uint32_t kHalfOfAll = 0x80000000U;  // sequence numbers further on than this are behind

// One connection: what was sent again is left out, what came too early waits for what belongs before it.
class StreamBuilder {
 public:
  explicit StreamBuilder(const Segment& segment) : first_(segment.from) {
    stream_.first_port = segment.from.port;
    stream_.second_port = segment.to.port;
    stream_.first_opened = segment.opens && !segment.grants;
    stream_.second_opened = segment.grants;
    stream_.start_ns = segment.time_ns;
  }

  bool has_started() const { return has_bytes_ || is_over_; }

  void add(const Segment& segment) {
    const bool from_first = segment.from == first_;
    Side& side = sides_[from_first ? 0 : 1];
    stream_.losses.cut_packets += segment.is_cut ? 1 : 0;
    if (segment.opens) {
      side.next = segment.sequence + 1;
      return;
    }
    if (!segment.bytes.empty()) {
      // An answer shows that what is missing before it had arrived: it is missing in the capture alone.
      release(sides_[from_first ? 1 : 0], !from_first);
      take(side, from_first, segment);
    }
    if (segment.finishes && !side.is_finished) {
      side.is_finished = true;
      append(from_first, TcpEvent::Kind::kFinished, segment.time_ns, {});
    }
    if (segment.resets) {
      stream_.is_refused = stream_.first_opened && !from_first && !has_bytes_;
      append(from_first, TcpEvent::Kind::kReset, segment.time_ns, {});
    }
  }

  TcpStream finish() {
    release(sides_[0], true);
    release(sides_[1], false);
    return std::move(stream_);
  }

 private:
  // Bytes that were taken, and where.
  struct Taken {
    uint32_t sequence;
    size_t event;
  };

  struct Side {
    std::optional<uint32_t> next;
    std::deque<Segment> early;
    std::deque<Taken> latest;
    bool is_finished = false;
  };

  void append(bool from_first, TcpEvent::Kind kind, int64_t time_ns, Bytes bytes) {
    has_bytes_ = has_bytes_ || kind == TcpEvent::Kind::kBytes;
    is_over_ = is_over_ || kind != TcpEvent::Kind::kBytes;
    stream_.events.push_back({time_ns, from_first, kind, std::move(bytes)});
  }

  void take(Side& side, bool from_first, const Segment& segment) {
    constexpr size_t kMostEarly = 64;
    const uint32_t ahead = side.next ? segment.sequence - *side.next : 0;
    if (ahead != 0 && ahead < kHalfOfAll) {
      side.early.push_back(segment);
      if (side.early.size() > kMostEarly) release(side, from_first);
      return;
    }
    append_new(side, from_first, segment);
    for (size_t i = 0; i < side.early.size();) {
      const uint32_t gap = side.early[i].sequence - *side.next;
      if (gap != 0 && gap < kHalfOfAll) {
        ++i;
        continue;
      }
      const Segment waiting = std::move(side.early[i]);
      side.early.erase(side.early.begin() + static_cast<std::ptrdiff_t>(i));
      append_new(side, from_first, waiting);
      i = 0;
    }
  }

  // The bytes that were not there yet.
  void append_new(Side& side, bool from_first, const Segment& segment) {
    constexpr size_t kMostCompared = 64;
    const uint32_t known = side.next ? *side.next - segment.sequence : 0;
    if (known != 0) compare_known(side, segment);
    if (known >= segment.bytes.size()) return;
    append(from_first, TcpEvent::Kind::kBytes, segment.time_ns,
           Bytes(segment.bytes.begin() + static_cast<std::ptrdiff_t>(known), segment.bytes.end()));
    side.latest.push_back({segment.sequence + known, stream_.events.size() - 1});
    if (side.latest.size() > kMostCompared) side.latest.pop_front();
    side.next = segment.sequence + static_cast<uint32_t>(segment.bytes.size());
  }

  // Counts the bytes that came before with another value. A packet that keeps an idle connection alive sends the last
  // byte again, whatever its value.
  void compare_known(const Side& side, const Segment& segment) {
    if (segment.bytes.size() == 1 && segment.sequence + 1 == *side.next) return;
    for (const Taken& taken : side.latest) {
      const Bytes& before = stream_.events[taken.event].bytes;
      const auto start = int64_t{static_cast<int32_t>(taken.sequence - segment.sequence)};
      const int64_t end =
          std::min<int64_t>(start + static_cast<int64_t>(before.size()), static_cast<int64_t>(segment.bytes.size()));
      for (int64_t at = std::max<int64_t>(start, 0); at < end; ++at) {
        const bool is_same = segment.bytes[static_cast<size_t>(at)] == before[static_cast<size_t>(at - start)];
        stream_.losses.changed_bytes += is_same ? 0 : 1;
      }
    }
  }

  // Gives up on what is missing.
  void release(Side& side, bool from_first) {
    std::stable_sort(side.early.begin(), side.early.end(), [&side](const Segment& a, const Segment& b) {
      return a.sequence - *side.next < b.sequence - *side.next;
    });
    while (!side.early.empty()) {
      const Segment waiting = std::move(side.early.front());
      side.early.pop_front();
      const uint32_t gap = waiting.sequence - *side.next;
      if (gap < kHalfOfAll) {
        stream_.losses.missing_bytes += gap;
        side.next = waiting.sequence;
      }
      append_new(side, from_first, waiting);
    }
  }

  Endpoint first_;
  TcpStream stream_;
  Side sides_[2];
  bool has_bytes_ = false;
  bool is_over_ = false;
};

// All connections in the order of their first packets; one that starts again is a new one.
class StreamTable {
 public:
  void add(const Segment& segment) {
    const auto key = std::minmax(segment.from, segment.to);
    const bool is_full = all_.size() >= kMostConnections;
    if (is_full && current_.count(key) == 0) {
      ++left_out_;
      return;
    }
    const auto [entry, is_new] = current_.try_emplace(key, all_.size());
    const bool starts_again = !is_new && segment.opens && !segment.grants && all_[entry->second].has_started();
    if (starts_again && is_full) {
      ++left_out_;
      return;
    }
    if (is_new || starts_again) {
      entry->second = all_.size();
      all_.emplace_back(segment);
    }
    all_[entry->second].add(segment);
  }
  // Packets of connections beyond those that there is room for.
  uint64_t left_out() const { return left_out_; }
  std::vector<TcpStream> finish() {
    std::vector<TcpStream> streams;
    streams.reserve(all_.size());
    for (StreamBuilder& builder : all_) streams.push_back(builder.finish());
    return streams;
  }

 private:
  static constexpr size_t kMostConnections = 65536;

  uint64_t left_out_ = 0;
  std::vector<StreamBuilder> all_;
  std::map<std::pair<Endpoint, Endpoint>, size_t> current_;
};

void append_count(std::string& text, uint64_t count, const char* one, const char* many) {
  if (count > 0) text += (text.empty() ? "" : "; ") + std::to_string(count) + " " + (count == 1 ? one : many);
}

template <typename Read>
TcpCapture streams_of(Read read) {
  StreamTable streams;
  TcpCapture capture;
  capture.problem = read([&](const Packet& packet) {
    const PacketContent content = content_of(packet);
    capture.losses.fragments += content.is_fragment ? 1 : 0;
    capture.losses.cut_packets += content.is_cut ? 1 : 0;
    if (content.segment) streams.add(*content.segment);
  });
  capture.losses.left_out = streams.left_out();
  capture.streams = streams.finish();
  return capture;
}

}  // namespace

Losses& Losses::operator+=(const Losses& other) {
  missing_bytes += other.missing_bytes;
  changed_bytes += other.changed_bytes;
  cut_packets += other.cut_packets;
  fragments += other.fragments;
  left_out += other.left_out;
  return *this;
}

std::string with_losses(std::string problem, const Losses& losses) {
  append_count(problem, losses.missing_bytes, "byte is missing", "bytes are missing");
  append_count(problem, losses.changed_bytes, "byte was sent again with another value, the first one counts",
               "bytes were sent again with other values, the first ones count");
  append_count(problem, losses.cut_packets, "packet was captured in part", "packets were captured in part");
  append_count(problem, losses.fragments, "fragment of an IP packet is left out",
               "fragments of IP packets are left out");
  append_count(problem, losses.left_out, "packet of a connection beyond the first 65536 is left out",
               "packets of connections beyond the first 65536 are left out");
  return problem;
}

TcpCapture read_tcp_streams(std::string_view file) {
  return streams_of([file](const TakePacket& take) { return read_packets(file, take); });
}

TcpCapture read_tcp_stream_file(const std::string& path) {
  return streams_of([&path](const TakePacket& take) { return read_packet_file(path, take); });
}

}  // namespace plc_sim
