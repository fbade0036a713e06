// Reads capture files: packets, TCP streams put in order, and in them requests and replies by turns.
#include "simulator/pcap_reader.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <tuple>

namespace plc_sim {
namespace {

constexpr size_t kFileHeadBytes = 24;
constexpr size_t kLinkAt = 20;
constexpr size_t kRecordHeadBytes = 16;
constexpr size_t kMaxPacketBytes = 1 << 20;

// Reads bytes that may not be there: behind the end everything is 0.
class FileView {
 public:
  explicit FileView(std::string_view bytes) : bytes_(bytes) {}
  size_t size() const { return bytes_.size(); }
  uint8_t u8(size_t at) const { return at < bytes_.size() ? static_cast<uint8_t>(bytes_[at]) : uint8_t{0}; }
  uint16_t u16(size_t at) const { return static_cast<uint16_t>((static_cast<unsigned>(u8(at)) << 8U) | u8(at + 1)); }
  uint32_t u32(size_t at) const { return (static_cast<uint32_t>(u16(at)) << 16U) | u16(at + 2); }
  uint32_t swapped_u32(size_t at) const {
    return u8(at) | (static_cast<uint32_t>(u8(at + 1)) << 8U) | (static_cast<uint32_t>(u8(at + 2)) << 16U) |
           (static_cast<uint32_t>(u8(at + 3)) << 24U);
  }
  FileView part(size_t at, size_t count) const { return FileView(bytes_.substr(std::min(at, size()), count)); }
  Bytes bytes() const { return Bytes(bytes_.begin(), bytes_.end()); }

 private:
  std::string_view bytes_;
};

struct Endpoint {
  uint32_t address;
  uint16_t port;
  bool operator<(const Endpoint& other) const { return std::tie(address, port) < std::tie(other.address, other.port); }
};

struct Segment {
  Endpoint from;
  Endpoint to;
  uint32_t sequence;
  bool starts_stream;
  Bytes bytes;
};

// Where the IP packet starts; empty for packets of another kind.
std::optional<size_t> ip_start(uint32_t link, const FileView& packet) {
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

std::optional<Segment> segment_in(uint32_t link, const FileView& packet) {
  constexpr uint8_t kTcp = 6;
  constexpr unsigned kSyn = 0x02;
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
  const FileView ip = packet.part(*start, ip_bytes == 0 ? packet.size() : ip_bytes);
  const size_t tcp = size_t{4} * (head & 0x0FU);
  const size_t data = tcp + size_t{4} * (static_cast<unsigned>(ip.u8(tcp + 12)) >> 4U);
  Segment segment{{ip.u32(12), ip.u16(tcp)},
                  {ip.u32(16), ip.u16(tcp + 2)},
                  ip.u32(tcp + 4),
                  (ip.u8(tcp + 13) & kSyn) != 0,
                  ip.part(data, ip.size()).bytes()};
  return segment;
}

// One connection: bytes by turns, those that were sent again left out.
struct Conversation {
  struct Turn {
    bool from_first;
    Bytes bytes;
  };
  Endpoint first{};
  std::map<bool, std::optional<uint32_t>> next_sequence;
  std::vector<Turn> turns;

  void add(const Segment& segment) {
    const bool from_first = !(segment.from < first) && !(first < segment.from);
    auto& next = next_sequence[from_first];
    if (segment.starts_stream) {
      next = segment.sequence + 1;
      return;
    }
    if (segment.bytes.empty()) {
      return;
    }
    const uint32_t known = next ? *next - segment.sequence : 0;
    const bool is_old = next && known >= segment.bytes.size() && known < 0x80000000U;
    if (is_old) {
      return;
    }
    const size_t skip = known < segment.bytes.size() ? known : 0;
    next = segment.sequence + static_cast<uint32_t>(segment.bytes.size());
    if (turns.empty() || turns.back().from_first != from_first) {
      turns.push_back({from_first, {}});
    }
    turns.back().bytes.insert(turns.back().bytes.end(), segment.bytes.begin() + static_cast<std::ptrdiff_t>(skip),
                              segment.bytes.end());
  }
};

// All connections in the order of their first packets; one that starts again is a new one.
class Conversations {
 public:
  void add(const Segment& segment) {
    const auto key = std::minmax(segment.from, segment.to);
    const auto [entry, is_new] = current_.try_emplace(key, all_.size());
    const bool starts_again = !is_new && segment.starts_stream && !all_[entry->second].turns.empty();
    if (is_new || starts_again) {
      entry->second = all_.size();
      all_.emplace_back();
      all_.back().first = segment.from;
    }
    all_[entry->second].add(segment);
  }
  const std::vector<Conversation>& all() const { return all_; }

 private:
  std::vector<Conversation> all_;
  std::map<std::pair<Endpoint, Endpoint>, size_t> current_;
};

struct FileFormat {
  bool is_big;
  uint32_t number(const FileView& view, size_t at) const { return is_big ? view.u32(at) : view.swapped_u32(at); }
};

std::optional<FileFormat> format_of(const FileView& view) {
  constexpr uint32_t kMicroseconds = 0xA1B2C3D4;
  constexpr uint32_t kNanoseconds = 0xA1B23C4D;
  const auto is_magic = [](uint32_t value) { return value == kMicroseconds || value == kNanoseconds; };
  if (is_magic(view.u32(0))) {
    return FileFormat{true};
  }
  return is_magic(view.swapped_u32(0)) ? std::optional<FileFormat>(FileFormat{false}) : std::nullopt;
}

bool looks_like_request(const Bytes& bytes) {
  if (bytes.size() < wire::kHeadBytes) {
    return false;
  }
  for (size_t i = 0; i < 4; ++i) {
    if ((bytes[i] ^ bytes[i + 4]) != 0xFF) {
      return false;
    }
  }
  return bytes[wire::kClassAt] == wire::kClassNames || bytes[wire::kClassAt] == wire::kClassValues;
}

// Hosts speak first: whoever sends the first request is the host.
void append_exchanges(const Conversation& conversation, std::vector<Exchange>& exchanges) {
  std::optional<bool> host;
  bool is_answered = true;
  for (const Conversation::Turn& turn : conversation.turns) {
    if (!host) {
      if (!looks_like_request(turn.bytes)) {
        continue;
      }
      host = turn.from_first;
    }
    if (turn.from_first == *host) {
      exchanges.push_back({turn.bytes, {}});
      is_answered = false;
    } else if (!is_answered) {
      exchanges.back().reply = turn.bytes;
      is_answered = true;
    }
  }
}

}  // namespace

Capture read_capture(std::string_view file) {
  const FileView view(file);
  Capture capture;
  const auto format = format_of(view);
  if (!format) {
    constexpr uint32_t kNextGeneration = 0x0A0D0D0A;
    capture.problem = view.u32(0) == kNextGeneration ? "a pcapng file; turn it into pcap first: editcap -F pcap IN OUT"
                                                     : "not a pcap file";
    return capture;
  }
  Conversations conversations;
  for (size_t at = kFileHeadBytes; at + kRecordHeadBytes <= view.size();) {
    const size_t count = format->number(view, at + 8);
    at += kRecordHeadBytes;
    if (count > kMaxPacketBytes || at + count > view.size()) {
      capture.problem = "the file ends inside a packet";
      break;
    }
    if (const auto segment = segment_in(format->number(view, kLinkAt), view.part(at, count))) {
      conversations.add(*segment);
    }
    at += count;
  }
  for (const Conversation& conversation : conversations.all()) {
    append_exchanges(conversation, capture.exchanges);
  }
  if (capture.exchanges.empty() && capture.problem.empty()) {
    capture.problem = "no exchange with a controller in it";
  }
  return capture;
}

Capture read_capture_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) {
    return {{}, "cannot be read"};
  }
  std::ostringstream bytes;
  bytes << stream.rdbuf();
  return read_capture(bytes.str());
}

}  // namespace plc_sim
