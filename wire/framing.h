// Finds where a request ends in the bytes received.
#pragma once

#include <cstddef>

#include "wire/wire.h"

namespace plc_sim {

struct FrameEnd {
  bool is_complete = false;
  size_t bytes = 0;
};

// `is_quiet` says that nothing more came for a while: requests that are shorter than their length field says end then.
// Whatever is still incomplete after a quiet while is taken whole, for the judge to complain about.
FrameEnd find_frame_end(const Bytes& received, bool is_quiet);

}  // namespace plc_sim
