// The TCP segment in a captured packet.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <tuple>

#include "wire/captures/packets.h"

namespace plc_sim {

using Address = std::array<uint8_t, 16>;  // of IPv6; those of IPv4 in the last four bytes

struct Endpoint {
  Address address{};
  uint16_t port = 0;
  bool operator<(const Endpoint& other) const { return std::tie(address, port) < std::tie(other.address, other.port); }
  bool operator==(const Endpoint& other) const { return address == other.address && port == other.port; }
};

struct Segment {
  int64_t time_ns = 0;
  Endpoint from;
  Endpoint to;
  uint32_t sequence = 0;
  bool opens = false;   // SYN
  bool grants = false;  // SYN and ACK
  bool finishes = false;
  bool resets = false;
  bool is_cut = false;  // more was sent than was captured
  Bytes bytes;
};

struct PacketContent {
  std::optional<Segment> segment;
  bool is_fragment = false;  // of an IP packet that carries TCP
  bool is_cut = false;       // in front of the segment's bytes
};

// Packets of other kinds have no content.
PacketContent content_of(const Packet& packet);

}  // namespace plc_sim
