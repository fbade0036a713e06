// The command line of plc-sim.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_sim/controller/faults.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

struct Endpoint {
  std::string host;
  uint16_t port = 0;
};

struct Options {
  Endpoint listen{"127.0.0.1", 0};
  std::vector<std::string> tag_files;
  bool sentinel = false;
  unsigned animate_ms = 0;  // 0: values stand still
  std::vector<Fault> faults;
  std::map<std::string, uint8_t> programs;
  DirectoryOrder directory_order = DirectoryOrder::kLongestFirst;
  bool skip_bad_lines = false;
  bool ignore_stdin = false;
  bool quiet = false;
  std::string pcap;     // file to write; empty for none
  std::string profile;  // of a controller to imitate; empty for none
  std::string replay;   // capture to answer from; empty for none
  std::string report;   // file to write at the end, "-" for standard output; empty for none
  std::optional<Endpoint> web;

  // Every file that is read.
  std::vector<std::string> inputs() const;
};

// "127.0.0.1:8500"
std::string endpoint_text(const Endpoint& endpoint);

// Whether other machines cannot connect to it.
bool is_loopback(const Endpoint& endpoint);

// Either options, or the exit code after help or an error was printed.
struct ParsedOptions {
  std::optional<Options> options;
  int exit_code = 0;
};

ParsedOptions parse_options(int argc, const char* const* argv);

}  // namespace plc_sim
