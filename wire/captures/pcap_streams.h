// Reads from capture files each TCP connection as it went, bytes in order and with their times, and says what is lost.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wire/wire.h"

namespace plc_sim {

struct TcpEvent {
  enum class Kind { kBytes, kFinished, kReset };  // kFinished: this side sends nothing more
  int64_t time_ns = 0;
  bool from_first = false;
  Kind kind = Kind::kBytes;
  Bytes bytes;
};

// What a capture lacks of the connections that it holds.
struct Losses {
  uint64_t missing_bytes = 0;  // sent between two packets that were captured
  uint64_t changed_bytes = 0;  // sent again with another value; the first one counts
  size_t cut_packets = 0;      // captured in part
  size_t fragments = 0;        // of IP packets; left out
  uint64_t left_out = 0;       // packets of connections beyond the number that there is room for
  Losses& operator+=(const Losses& other);
};

// What went wrong, with a part for each kind of loss.
std::string with_losses(std::string problem, const Losses& losses);

struct TcpStream {
  uint16_t first_port = 0;  // of whoever sent the first packet
  uint16_t second_port = 0;
  bool first_opened = false;   // the first packet asked for the connection
  bool second_opened = false;  // the first packet granted it: the one before was not captured
  bool is_refused = false;     // asked for, and nothing but a reset came back
  int64_t start_ns = 0;
  std::vector<TcpEvent> events;
  Losses losses;
};

struct TcpCapture {
  std::vector<TcpStream> streams;  // in the order of their first packets
  std::string problem;             // why there are none, or why the rest of the file was not read
  Losses losses;                   // of packets that no connection could be told from
};

// pcap files in both byte orders, with microseconds or nanoseconds, and pcapng files, over Ethernet with or without
// VLAN tags, Linux cooked captures, raw IP or loopback devices.
TcpCapture read_tcp_streams(std::string_view file);
TcpCapture read_tcp_stream_file(const std::string& path);

}  // namespace plc_sim
