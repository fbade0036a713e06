// Reads capture files and finds the exchanges of hosts and controllers in them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "wire/wire.h"

namespace plc_sim {

struct Exchange {
  Bytes request;
  Bytes reply;  // empty when none came
};

struct Capture {
  std::vector<Exchange> exchanges;
  std::string problem;  // why there are none, or what is not in them
};

// Of every file that read_tcp_streams takes.
Capture read_capture(std::string_view file);

Capture read_capture_file(const std::string& path);

}  // namespace plc_sim
