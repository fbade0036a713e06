// Reads capture files: packets, and from them each TCP connection as it went, bytes in order and with their times.
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

struct TcpStream {
  uint16_t first_port = 0;  // of whoever sent the first packet
  uint16_t second_port = 0;
  bool first_opened = false;   // the first packet asked for the connection
  bool second_opened = false;  // the first packet granted it: the one before was not captured
  bool is_refused = false;     // asked for, and nothing but a reset came back
  int64_t start_ns = 0;
  std::vector<TcpEvent> events;
};

struct TcpCapture {
  std::vector<TcpStream> streams;  // in the order of their first packets
  std::string problem;             // why there are none, or why the rest of the file was not read
};

// Classic pcap in both byte orders, with microseconds or nanoseconds, over Ethernet, raw IP or Linux "any" devices.
TcpCapture read_tcp_streams(std::string_view file);

// The file's content; nothing when it cannot be read.
bool read_whole_file(const std::string& path, std::string* content);

}  // namespace plc_sim
