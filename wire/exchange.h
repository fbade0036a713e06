// Cuts a recording into exchanges: a request, and what came back before the next one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "wire/recording.h"
#include "wire/request.h"

namespace wire_trace {

// Bytes that arrived together.
struct Piece {
  int64_t time_ns;
  Bytes bytes;
};

// What became of the connection before the next request.
enum class Ending { kNone, kClosedByHost, kClosedByController, kReset };

struct Exchange {
  size_t connection = 0;  // position in the recording
  int64_t request_ns = 0;
  Bytes request_bytes;
  plc_sim::Request request;
  std::vector<std::string> oddities;  // of the request's own form; the driver sends none
  std::vector<Piece> pieces;
  Ending ending = Ending::kNone;
  int64_t ending_ns = 0;

  bool is_answered() const { return !pieces.empty(); }
  // Everything that came back.
  Bytes reply() const;
  // The whole frame among it that answers the request; frames before it answer others. Nothing where none is seen.
  std::optional<Bytes> own_reply() const;
  // What came is the request itself. Of the two for the directory that is not known: a controller may answer with the
  // same bytes.
  bool is_echo() const;
  // From the request to the first byte of the reply; nothing without one.
  std::optional<int64_t> time_ns() const;
};

// In the order of the requests.
std::vector<Exchange> find_exchanges(const Recording& recording);

}  // namespace wire_trace
