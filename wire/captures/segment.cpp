// Takes packets apart: what the link puts before IP, IPv4 and IPv6 with their options, TCP.
#include "wire/captures/segment.h"

#include "wire/captures/tcp_head.h"

namespace plc_sim {
namespace {

constexpr uint16_t kTypeIpv4 = 0x0800;
constexpr uint16_t kTypeIpv6 = 0x86DD;

// What an IP packet carries. The offsets count from the start of the IP packet.
struct IpPayload {
  uint8_t protocol;
  bool is_fragment;
  Address from;
  Address to;
  size_t at;
  size_t end;  // as the head says, captured or not
};

bool is_ip(uint16_t type) { return type == kTypeIpv4 || type == kTypeIpv6; }

bool is_vlan_tag(uint16_t type) { return type == 0x8100 || type == 0x88A8 || type == 0x9100; }

// Behind the packet's type and any VLAN tags, where the type says IP.
std::optional<size_t> behind_type(const ByteView& packet, size_t type_at) {
  constexpr size_t kTagBytes = 4;
  while (is_vlan_tag(packet.u16(type_at))) type_at += kTagBytes;
  return is_ip(packet.u16(type_at)) ? std::optional<size_t>(type_at + 2) : std::nullopt;
}

// The type at the start of the head; a tagged packet has the tag's number and the next type behind the head.
std::optional<size_t> behind_cooked2_head(const ByteView& packet) {
  constexpr size_t kHeadBytes = 20;
  const uint16_t type = packet.u16(0);
  if (is_vlan_tag(type)) return behind_type(packet, kHeadBytes + 2);
  return is_ip(type) ? std::optional<size_t>(kHeadBytes) : std::nullopt;
}

// The address family, in the byte order of the machine that captured; that of IPv6 differs between systems.
std::optional<size_t> behind_family(const ByteView& packet) {
  const uint32_t big = packet.u32(0);
  const uint32_t family = big <= 0xFFFF ? big : packet.swapped_u32(0);
  const bool is_known = family == 2 || family == 10 || family == 24 || family == 28 || family == 30;
  return is_known ? std::optional<size_t>(4) : std::nullopt;
}

std::optional<size_t> ip_start(Link link, const ByteView& packet) {
  constexpr size_t kEthernetTypeAt = 12;
  constexpr size_t kCookedTypeAt = 14;
  switch (link) {
    case Link::kEthernet:
      return behind_type(packet, kEthernetTypeAt);
    case Link::kLinuxCooked:
      return behind_type(packet, kCookedTypeAt);
    case Link::kLinuxCooked2:
      return behind_cooked2_head(packet);
    case Link::kRawIp:
      return 0;
    case Link::kLoopback:
      return behind_family(packet);
  }
  return std::nullopt;
}

Address address_in(const ByteView& ip, size_t at, size_t count) {
  Address address{};
  for (size_t i = 0; i < count; ++i) address[address.size() - count + i] = ip.u8(at + i);
  return address;
}

// A length of 0 is left to the network card to fill in.
std::optional<IpPayload> ipv4_payload(const ByteView& ip) {
  constexpr size_t kHeadBytes = 20;
  constexpr unsigned kMoreOrOffset = 0x3FFF;
  const size_t head_bytes = size_t{4} * (ip.u8(0) & 0x0FU);
  if (head_bytes < kHeadBytes) return std::nullopt;
  const size_t ip_bytes = ip.u16(2) == 0 ? ip.size() : ip.u16(2);
  return IpPayload{ip.u8(9), (ip.u16(6) & kMoreOrOffset) != 0, address_in(ip, 12, 4), address_in(ip, 16, 4), head_bytes,
                   ip_bytes};
}

// How long an extension head is; nothing for what is none.
std::optional<size_t> extension_bytes(uint8_t kind, const ByteView& ip, size_t at) {
  constexpr uint8_t kHopByHop = 0;
  constexpr uint8_t kRouting = 43;
  constexpr uint8_t kFragment = 44;
  constexpr uint8_t kAuthentication = 51;
  constexpr uint8_t kDestination = 60;
  constexpr uint8_t kMobility = 135;
  const size_t length = ip.u8(at + 1);
  switch (kind) {
    case kHopByHop:
    case kRouting:
    case kDestination:
    case kMobility:
      return 8 * (length + 1);
    case kAuthentication:
      return 4 * (length + 2);
    case kFragment:
      return 8;
    default:
      return std::nullopt;
  }
}

IpPayload ipv6_payload(const ByteView& ip) {
  constexpr size_t kHeadBytes = 40;
  constexpr uint8_t kFragment = 44;
  constexpr unsigned kMoreOrOffset = 0xFFF9;
  const size_t ip_bytes = ip.u16(4) == 0 ? ip.size() : kHeadBytes + ip.u16(4);
  IpPayload payload{ip.u8(6), false, address_in(ip, 8, 16), address_in(ip, 24, 16), kHeadBytes, ip_bytes};
  while (payload.at < ip.size()) {
    const auto bytes = extension_bytes(payload.protocol, ip, payload.at);
    if (!bytes) break;
    if (payload.protocol == kFragment) payload.is_fragment = (ip.u16(payload.at + 2) & kMoreOrOffset) != 0;
    payload.protocol = ip.u8(payload.at);
    payload.at += *bytes;
  }
  return payload;
}

std::optional<IpPayload> ip_payload(const ByteView& ip) {
  switch (ip.u8(0) >> 4U) {
    case 4:
      return ipv4_payload(ip);
    case 6:
      return ipv6_payload(ip);
    default:
      return std::nullopt;
  }
}

std::optional<Segment> segment_in(const ByteView& ip, const IpPayload& payload, int64_t time_ns) {
  constexpr unsigned kGrant = tcp::kSyn | tcp::kAck;
  const size_t start = payload.at;
  const size_t head_bytes = size_t{4} * (static_cast<unsigned>(ip.u8(start + 12)) >> 4U);
  if (head_bytes < tcp::kHeadBytes) return std::nullopt;
  const unsigned flags = ip.u8(start + 13);
  Segment segment;
  segment.time_ns = time_ns;
  segment.from = {payload.from, ip.u16(start)};
  segment.to = {payload.to, ip.u16(start + 2)};
  segment.sequence = ip.u32(start + 4);
  segment.opens = (flags & tcp::kSyn) != 0;
  segment.grants = (flags & kGrant) == kGrant;
  segment.finishes = (flags & tcp::kFin) != 0;
  segment.resets = (flags & tcp::kReset) != 0;
  segment.is_cut = payload.end > ip.size();
  const size_t data = start + head_bytes;
  segment.bytes = ip.part(data, payload.end > data ? payload.end - data : 0).bytes();
  return segment;
}

}  // namespace

PacketContent content_of(const Packet& packet) {
  const auto start = ip_start(packet.link, packet.bytes);
  if (!start) return {};
  const ByteView ip = packet.bytes.part(*start, packet.bytes.size());
  const auto payload = ip_payload(ip);
  if (!payload || payload->protocol != tcp::kProtocol) return {};
  if (payload->is_fragment) return {std::nullopt, true, false};
  if (ip.size() < payload->at + tcp::kHeadBytes) return {std::nullopt, false, true};
  return {segment_in(ip, *payload, packet.time_ns), false, false};
}

}  // namespace plc_sim
