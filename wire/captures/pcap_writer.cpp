// Writes capture files: classic pcap, Ethernet, IPv4 and TCP with right lengths, sequence numbers and checksums.
#include "wire/captures/pcap_writer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "wire/big_endian.h"

namespace plc_sim {
namespace {

constexpr uint32_t kMagic = 0xA1B2C3D4;
constexpr uint32_t kSnapLength = 65535;
constexpr uint32_t kEthernet = 1;
constexpr uint32_t kLoopback = 0x7F000001;
constexpr size_t kEthernetBytes = 14;
constexpr size_t kIpBytes = 20;
constexpr size_t kTcpBytes = 20;
constexpr size_t kMaxSegmentBytes = 32000;
constexpr uint32_t kFirstSequence = 1000;
constexpr uint8_t kFin = 0x01;
constexpr uint8_t kSyn = 0x02;
constexpr uint8_t kReset = 0x04;
constexpr uint8_t kPush = 0x08;
constexpr uint8_t kAck = 0x10;

// The file's own numbers stand in the byte order of the machine that wrote it; this one writes little-endian.
void append_file_u32(Bytes& bytes, uint32_t value) {
  for (unsigned shift = 0; shift < 32; shift += 8) {
    bytes.push_back(static_cast<uint8_t>(value >> shift));
  }
}

uint16_t checksum(const Bytes& bytes, size_t from, uint32_t sum) {
  for (size_t at = from; at < bytes.size(); at += 2) {
    const unsigned low = at + 1 < bytes.size() ? bytes[at + 1] : 0U;
    sum += (static_cast<unsigned>(bytes[at]) << 8U) | low;
  }
  while (sum > 0xFFFF) {
    sum = (sum & 0xFFFFU) + (sum >> 16U);
  }
  return static_cast<uint16_t>(~sum);
}

void put_u16(Bytes& bytes, size_t at, uint16_t value) {
  bytes[at] = static_cast<uint8_t>(value >> 8U);
  bytes[at + 1] = static_cast<uint8_t>(value);
}

struct Segment {
  uint16_t from_port;
  uint16_t to_port;
  uint32_t sequence;
  uint32_t acknowledged;
  uint8_t flags;
};

Bytes make_frame(const Segment& segment, const uint8_t* bytes, size_t count) {
  constexpr uint8_t kIpVersionAndLength = 0x45;
  constexpr uint8_t kTimeToLive = 64;
  constexpr uint8_t kTcp = 6;
  constexpr uint8_t kTcpLength = 0x50;
  Bytes frame(12, 0);
  append_u16(frame, 0x0800);
  frame.push_back(kIpVersionAndLength);
  frame.push_back(0);
  append_u16(frame, static_cast<uint16_t>(kIpBytes + kTcpBytes + count));
  append_u32(frame, 0x00004000);
  frame.push_back(kTimeToLive);
  frame.push_back(kTcp);
  append_u16(frame, 0);
  append_u32(frame, kLoopback);
  append_u32(frame, kLoopback);
  const Bytes ip(frame.begin() + kEthernetBytes, frame.end());
  put_u16(frame, kEthernetBytes + 10, checksum(ip, 0, 0));
  append_u16(frame, segment.from_port);
  append_u16(frame, segment.to_port);
  append_u32(frame, segment.sequence);
  append_u32(frame, segment.acknowledged);
  frame.push_back(kTcpLength);
  frame.push_back(segment.flags);
  append_u16(frame, 0xFFFF);
  append_u32(frame, 0);
  frame.insert(frame.end(), bytes, bytes + count);
  const uint32_t pseudo_head =
      2 * ((kLoopback >> 16U) + (kLoopback & 0xFFFFU)) + kTcp + static_cast<uint32_t>(kTcpBytes + count);
  put_u16(frame, kEthernetBytes + kIpBytes + 16, checksum(frame, kEthernetBytes + kIpBytes, pseudo_head));
  return frame;
}

uint64_t now_us() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(since).count());
}

}  // namespace

PcapWriter::PcapWriter() : PcapWriter(now_us) {}

PcapWriter::~PcapWriter() {
  if (file_ != nullptr) {
    std::fclose(file_);
  }
}

std::string PcapWriter::open(const std::string& path, uint16_t server_port) {
  file_ = std::fopen(path.c_str(), "wb");
  if (file_ == nullptr) {
    return std::strerror(errno);
  }
  server_port_ = server_port;
  Bytes head;
  append_file_u32(head, kMagic);
  append_file_u32(head, 0x00040002);  // version 2.4
  append_file_u32(head, 0);
  append_file_u32(head, 0);
  append_file_u32(head, kSnapLength);
  append_file_u32(head, kEthernet);
  std::fwrite(head.data(), 1, head.size(), file_);
  std::fflush(file_);
  return {};
}

void PcapWriter::packet(Stream& stream, bool from_host, uint8_t flags, const uint8_t* bytes, size_t count) {
  constexpr uint64_t kUsPerSecond = 1000000;
  uint32_t& own = from_host ? stream.host_sequence : stream.server_sequence;
  const uint32_t other = from_host ? stream.server_sequence : stream.host_sequence;
  const Segment segment{from_host ? stream.peer_port : server_port_, from_host ? server_port_ : stream.peer_port, own,
                        (flags & kAck) != 0 ? other : 0, flags};
  const Bytes frame = make_frame(segment, bytes, count);
  own += static_cast<uint32_t>(count) + ((flags & (kSyn | kFin)) != 0 ? 1 : 0);
  const uint64_t now = clock_();
  Bytes record;
  append_file_u32(record, static_cast<uint32_t>(now / kUsPerSecond));
  append_file_u32(record, static_cast<uint32_t>(now % kUsPerSecond));
  append_file_u32(record, static_cast<uint32_t>(frame.size()));
  append_file_u32(record, static_cast<uint32_t>(frame.size()));
  record.insert(record.end(), frame.begin(), frame.end());
  std::fwrite(record.data(), 1, record.size(), file_);
  std::fflush(file_);
}

void PcapWriter::opened(unsigned connection, uint16_t peer_port) {
  Stream& stream = streams_[connection];
  stream = {peer_port, kFirstSequence, kFirstSequence * 2};
  packet(stream, true, kSyn, nullptr, 0);
  packet(stream, false, kSyn | kAck, nullptr, 0);
  packet(stream, true, kAck, nullptr, 0);
}

void PcapWriter::data(unsigned connection, bool from_host, const Bytes& bytes) {
  Stream& stream = streams_[connection];
  for (size_t at = 0; at < bytes.size(); at += kMaxSegmentBytes) {
    packet(stream, from_host, kPush | kAck, bytes.data() + at, std::min(kMaxSegmentBytes, bytes.size() - at));
  }
}

void PcapWriter::received(unsigned connection, const Bytes& bytes) { data(connection, true, bytes); }

void PcapWriter::sent(unsigned connection, const Bytes& bytes) { data(connection, false, bytes); }

void PcapWriter::finished(unsigned connection, bool from_host) {
  packet(streams_[connection], from_host, kFin | kAck, nullptr, 0);
}

void PcapWriter::reset(unsigned connection, bool from_host) {
  packet(streams_[connection], from_host, kReset | kAck, nullptr, 0);
}

void PcapWriter::closed(unsigned connection) {
  const auto found = streams_.find(connection);
  if (found == streams_.end()) {
    return;
  }
  packet(found->second, true, kFin | kAck, nullptr, 0);
  packet(found->second, false, kFin | kAck, nullptr, 0);
  packet(found->second, true, kAck, nullptr, 0);
  streams_.erase(found);
}

}  // namespace plc_sim
