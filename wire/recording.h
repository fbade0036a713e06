// Traffic as it went over the connections of one controller, whoever recorded it.
#pragma once

#include <cstdint>
#include <vector>

#include "wire/wire.h"

namespace wire_trace {

using plc_sim::Bytes;

struct TrafficEvent {
  enum class Kind { kBytes, kFinished, kReset };  // kFinished: this side sends nothing more
  int64_t time_ns = 0;
  bool from_host = false;
  Kind kind = Kind::kBytes;
  Bytes bytes;
};

struct Connection {
  uint16_t host_port = 0;
  int64_t opened_ns = 0;
  bool is_whole = true;     // seen from its beginning
  bool is_refused = false;  // asked for, and turned down
  std::vector<TrafficEvent> events;
};

struct Recording {
  std::vector<Connection> connections;  // in the order in which they were opened
  bool is_cut = false;                  // more came than is kept
};

}  // namespace wire_trace
