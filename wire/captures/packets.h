// The packets of a capture file, read with libpcap: every kind of file looks the same from here on.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <string_view>

#include "wire/big_endian.h"

namespace plc_sim {

// What stands before the IP packet.
enum class Link { kEthernet, kLinuxCooked, kLinuxCooked2, kRawIp, kLoopback };

struct Packet {
  Link link;
  int64_t time_ns;
  ByteView bytes;  // as far as they were captured; gone when the next packet is read
};

using TakePacket = std::function<void(const Packet&)>;

// Both give the packets of pcap files (either byte order, microseconds or nanoseconds) and of pcapng files one by one.
// Empty when the file was read to its end, else what keeps the rest, or all of it, from being read.
std::string read_packets(std::string_view file, const TakePacket& take);
std::string read_packet_file(const std::string& path, const TakePacket& take);

}  // namespace plc_sim
