// Reads packets, and puts the bytes of each TCP connection in order.
#include "wire/captures/pcap_streams.h"

#include <algorithm>
#include <deque>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <tuple>

#include "wire/big_endian.h"

namespace plc_sim {
namespace {

constexpr size_t kFileHeadBytes = 24;
constexpr size_t kLinkAt = 20;
constexpr size_t kRecordHeadBytes = 16;
constexpr size_t kMaxPacketBytes = 1 << 20;
constexpr uint32_t kHalfOfAll = 0x80000000U;  // sequence numbers further on than this are behind

struct Endpoint {
  uint32_t address;
  uint16_t port;
  bool operator<(const Endpoint& other) const { return std::tie(address, port) < std::tie(other.address, other.port); }
};

struct Segment {
  int64_t time_ns;
  Endpoint from;
  Endpoint to;
  uint32_t sequence;
  bool opens;   // SYN
  bool grants;  // SYN and ACK
  bool finishes;
  bool resets;
  Bytes bytes;
};

// Where the IP packet starts; empty for packets of another kind.
std::optional<size_t> ip_start(uint32_t link, const ByteView& packet) {
  constexpr uint32_t kEthernet = 1;
  constexpr uint32_t kRawIp = 101;
  constexpr uint32_t kLinuxAny = 113;
  constexpr uint32_t kLinuxAny2 = 276;
  constexpr uint16_t kIpv4 = 0x0800;
  constexpr uint16_t kVlan = 0x8100;
  switch (link) {
    case kEthernet: {
      const size_t type_at = packet.u16(12) == kVlan ? 16 : 12;
      return packet.u16(type_at) == kIpv4 ? std::optional<size_t>(type_at + 2) : std::nullopt;
    }
    case kRawIp:
      return 0;
    case kLinuxAny:
      return packet.u16(14) == kIpv4 ? std::optional<size_t>(16) : std::nullopt;
    case kLinuxAny2:
      return packet.u16(0) == kIpv4 ? std::optional<size_t>(20) : std::nullopt;
    default:
      return std::nullopt;
  }
}

std::optional<Segment> segment_in(uint32_t link, const ByteView& packet, int64_t time_ns) {
  constexpr uint8_t kTcp = 6;
  constexpr unsigned kFin = 0x01;
  constexpr unsigned kSyn = 0x02;
  constexpr unsigned kRst = 0x04;
  constexpr unsigned kAck = 0x10;
  const auto start = ip_start(link, packet);
  if (!start) {
    return std::nullopt;
  }
  const unsigned head = packet.u8(*start);
  const bool is_fragment = (packet.u16(*start + 6) & 0x1FFFU) != 0;
  if (head >> 4U != 4 || packet.u8(*start + 9) != kTcp || is_fragment) {
    return std::nullopt;
  }
  // A length of 0 is left to the network card to fill in.
  const size_t ip_bytes = packet.u16(*start + 2);
  const ByteView ip = packet.part(*start, ip_bytes == 0 ? packet.size() : ip_bytes);
  const size_t tcp = size_t{4} * (head & 0x0FU);
  const size_t data = tcp + size_t{4} * (static_cast<unsigned>(ip.u8(tcp + 12)) >> 4U);
  const unsigned flags = ip.u8(tcp + 13);
  return Segment{time_ns,
                 {ip.u32(12), ip.u16(tcp)},
                 {ip.u32(16), ip.u16(tcp + 2)},
                 ip.u32(tcp + 4),
                 (flags & kSyn) != 0,
                 (flags & (kSyn | kAck)) == (kSyn | kAck),
                 (flags & kFin) != 0,
                 (flags & kRst) != 0,
                 ip.part(data, ip.size()).bytes()};
}

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
    const bool from_first = !(segment.from < first_) && !(first_ < segment.from);
    Side& side = sides_[from_first ? 0 : 1];
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
  struct Side {
    std::optional<uint32_t> next;
    std::deque<Segment> early;
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
      if (side.early.size() > kMostEarly) {
        release(side, from_first);
      }
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
    const uint32_t known = side.next ? *side.next - segment.sequence : 0;
    if (known >= segment.bytes.size()) {
      return;
    }
    append(from_first, TcpEvent::Kind::kBytes, segment.time_ns,
           Bytes(segment.bytes.begin() + static_cast<std::ptrdiff_t>(known), segment.bytes.end()));
    side.next = segment.sequence + static_cast<uint32_t>(segment.bytes.size());
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
    const auto [entry, is_new] = current_.try_emplace(key, all_.size());
    const bool starts_again = !is_new && segment.opens && !segment.grants && all_[entry->second].has_started();
    if (is_new || starts_again) {
      entry->second = all_.size();
      all_.emplace_back(segment);
    }
    all_[entry->second].add(segment);
  }
  std::vector<TcpStream> finish() {
    std::vector<TcpStream> streams;
    streams.reserve(all_.size());
    for (StreamBuilder& builder : all_) {
      streams.push_back(builder.finish());
    }
    return streams;
  }

 private:
  std::vector<StreamBuilder> all_;
  std::map<std::pair<Endpoint, Endpoint>, size_t> current_;
};

struct FileFormat {
  bool is_big;
  int64_t ns_per_fraction;
  uint32_t number(const ByteView& view, size_t at) const { return is_big ? view.u32(at) : view.swapped_u32(at); }
};

std::optional<FileFormat> format_of(const ByteView& view) {
  constexpr uint32_t kMicroseconds = 0xA1B2C3D4;
  constexpr uint32_t kNanoseconds = 0xA1B23C4D;
  for (const bool is_big : {true, false}) {
    const uint32_t magic = is_big ? view.u32(0) : view.swapped_u32(0);
    if (magic == kMicroseconds || magic == kNanoseconds) {
      return FileFormat{is_big, magic == kMicroseconds ? 1000 : 1};
    }
  }
  return std::nullopt;
}

}  // namespace

TcpCapture read_tcp_streams(std::string_view file) {
  constexpr int64_t kNsPerSecond = 1000000000;
  const ByteView view(file.data(), file.size());
  TcpCapture capture;
  const auto format = format_of(view);
  if (!format) {
    constexpr uint32_t kNextGeneration = 0x0A0D0D0A;
    capture.problem = view.u32(0) == kNextGeneration ? "a pcapng file; turn it into pcap first: editcap -F pcap IN OUT"
                                                     : "not a pcap file";
    return capture;
  }
  StreamTable streams;
  for (size_t at = kFileHeadBytes; at + kRecordHeadBytes <= view.size();) {
    const int64_t time_ns =
        format->number(view, at) * kNsPerSecond + format->number(view, at + 4) * format->ns_per_fraction;
    const size_t count = format->number(view, at + 8);
    at += kRecordHeadBytes;
    if (count > kMaxPacketBytes || at + count > view.size()) {
      capture.problem = "the file ends inside a packet";
      break;
    }
    if (const auto segment = segment_in(format->number(view, kLinkAt), view.part(at, count), time_ns)) {
      streams.add(*segment);
    }
    at += count;
  }
  capture.streams = streams.finish();
  return capture;
}

bool read_whole_file(const std::string& path, std::string* content) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream bytes;
  if (stream && stream.peek() != std::ifstream::traits_type::eof()) {
    bytes << stream.rdbuf();
  }
  *content = bytes.str();
  return !stream.bad() && (stream.is_open());
}

}  // namespace plc_sim
