// Writes the heads of Ethernet, IPv4 and TCP.
#include "wire/captures/made_packets.h"

#include <algorithm>

#include "wire/big_endian.h"
#include "wire/captures/tcp_head.h"

namespace plc_sim {
namespace {

constexpr size_t kEthernetBytes = 14;
constexpr size_t kIpBytes = 20;
constexpr size_t kMaxSegmentBytes = 32000;
constexpr uint32_t kFirstSequence = 1000;

uint16_t checksum(const Bytes& bytes, size_t from, uint32_t sum) {
  for (size_t at = from; at < bytes.size(); at += 2) {
    const unsigned low = at + 1 < bytes.size() ? bytes[at + 1] : 0U;
    sum += (static_cast<unsigned>(bytes[at]) << 8U) | low;
  }
  while (sum > 0xFFFF) sum = (sum & 0xFFFFU) + (sum >> 16U);
  return static_cast<uint16_t>(~sum);
}

struct End {
  uint32_t address;
  uint16_t port;
};

struct SegmentHead {
  End from;
  End to;
  uint32_t sequence;
  uint32_t acknowledged;
  uint8_t flags;
};

uint32_t sum_of(uint32_t address) { return (address >> 16U) + (address & 0xFFFFU); }

Bytes make_frame(const SegmentHead& segment, const uint8_t* bytes, size_t count) {
  constexpr uint8_t kIpVersionAndLength = 0x45;
  constexpr uint8_t kTimeToLive = 64;
  constexpr uint8_t kTcpLength = 0x50;
  Bytes frame(12, 0);
  append_u16(frame, 0x0800);
  frame.push_back(kIpVersionAndLength);
  frame.push_back(0);
  append_u16(frame, static_cast<uint16_t>(kIpBytes + tcp::kHeadBytes + count));
  append_u32(frame, 0x00004000);
  frame.push_back(kTimeToLive);
  frame.push_back(tcp::kProtocol);
  append_u16(frame, 0);
  append_u32(frame, segment.from.address);
  append_u32(frame, segment.to.address);
  const Bytes ip(frame.begin() + kEthernetBytes, frame.end());
  put_u16(frame, kEthernetBytes + 10, checksum(ip, 0, 0));
  append_u16(frame, segment.from.port);
  append_u16(frame, segment.to.port);
  append_u32(frame, segment.sequence);
  append_u32(frame, segment.acknowledged);
  frame.push_back(kTcpLength);
  frame.push_back(segment.flags);
  append_u16(frame, 0xFFFF);
  append_u32(frame, 0);
  frame.insert(frame.end(), bytes, bytes + count);
  const uint32_t pseudo_head = sum_of(segment.from.address) + sum_of(segment.to.address) + tcp::kProtocol +
                               static_cast<uint32_t>(tcp::kHeadBytes + count);
  put_u16(frame, kEthernetBytes + kIpBytes + 16, checksum(frame, kEthernetBytes + kIpBytes, pseudo_head));
  return frame;
}

}  // namespace

void PacketMaker::packet(Stream& stream, bool from_host, uint8_t flags, const uint8_t* bytes, size_t count) {
  uint32_t& own = from_host ? stream.host_sequence : stream.server_sequence;
  const uint32_t other = from_host ? stream.server_sequence : stream.host_sequence;
  const End host{ends_.host_address, stream.peer_port};
  const End server{ends_.server_address, ends_.server_port};
  const SegmentHead segment{from_host ? host : server, from_host ? server : host, own,
                            (flags & tcp::kAck) != 0 ? other : 0, flags};
  own += static_cast<uint32_t>(count) + ((flags & (tcp::kSyn | tcp::kFin)) != 0 ? 1 : 0);
  take_(make_frame(segment, bytes, count));
}

void PacketMaker::opened(unsigned connection, uint16_t peer_port) {
  unheard(connection, peer_port);
  Stream& stream = streams_[connection];
  packet(stream, false, tcp::kSyn | tcp::kAck, nullptr, 0);
  packet(stream, true, tcp::kAck, nullptr, 0);
}

void PacketMaker::refused(unsigned connection, uint16_t peer_port) {
  unheard(connection, peer_port);
  packet(streams_[connection], false, tcp::kReset | tcp::kAck, nullptr, 0);
  streams_.erase(connection);
}

void PacketMaker::unheard(unsigned connection, uint16_t peer_port) {
  Stream& stream = streams_[connection];
  stream = {peer_port, kFirstSequence, kFirstSequence * 2};
  packet(stream, true, tcp::kSyn, nullptr, 0);
}

void PacketMaker::data(unsigned connection, bool from_host, const Bytes& bytes) {
  Stream& stream = streams_[connection];
  for (size_t at = 0; at < bytes.size(); at += kMaxSegmentBytes) {
    packet(stream, from_host, tcp::kPush | tcp::kAck, bytes.data() + at, std::min(kMaxSegmentBytes, bytes.size() - at));
  }
}

void PacketMaker::finished(unsigned connection, bool from_host) {
  packet(streams_[connection], from_host, tcp::kFin | tcp::kAck, nullptr, 0);
}

void PacketMaker::reset(unsigned connection, bool from_host) {
  packet(streams_[connection], from_host, tcp::kReset | tcp::kAck, nullptr, 0);
}

void PacketMaker::closed(unsigned connection) {
  const auto found = streams_.find(connection);
  if (found == streams_.end()) return;
  packet(found->second, true, tcp::kFin | tcp::kAck, nullptr, 0);
  packet(found->second, false, tcp::kFin | tcp::kAck, nullptr, 0);
  packet(found->second, true, tcp::kAck, nullptr, 0);
  streams_.erase(found);
}

}  // namespace plc_sim
