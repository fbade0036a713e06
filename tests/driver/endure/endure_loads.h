// Loads of random tag files by a build of the driver.
#pragma once

#include "tests/driver/endure/endure_library.h"
#include "tests/driver/endure/referee/endure_basics.h"

namespace plc_endure {

class Loads {
 public:
  Loads(const Library& library, uint64_t seed) : library_(library), random_(seed) {}

  // Writes a file into the working directory, loads it and gives the table back. Whether it was accepted.
  bool run_one();

 private:
  std::string random_file();

  const Library& library_;
  Random random_;
};

}  // namespace plc_endure
