// A plc-sim of a test's own in sentinel mode, and its memory.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/support/sim_process.h"

namespace plc_test {

// One element of the simulated memory.
struct SimElement {
  std::string name;             // with subscripts, local ones behind PROGRAM/
  std::vector<uint16_t> words;  // as they travel; of a BOOL one word, 0 or 1
};

class Simulator : public RunningSim {
 public:
  explicit Simulator(const std::string& tag_file);

  // The whole memory, by element name.
  std::map<std::string, SimElement> memory();
};

}  // namespace plc_test
