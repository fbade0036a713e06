// Random numbers that are the same on every machine: a life is its seed.
#pragma once

#include <cstdint>

namespace plc_gateway::simulation {

class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    uint64_t bits = state_;
    bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EBU;
    return bits ^ (bits >> 31U);
  }
  uint64_t below(uint64_t end) { return end == 0 ? 0 : next() % end; }
  int64_t between(int64_t first, int64_t last) {
    return first + static_cast<int64_t>(below(static_cast<uint64_t>(last - first) + 1));
  }
  bool percent(uint64_t chance) { return below(100) < chance; }
  // As often between 1 and 2 as between 1000 and 2000.
  int64_t spread(int64_t first, int64_t last) {
    int64_t doublings = 0;
    while ((first << (doublings + 1)) <= last) ++doublings;
    const int64_t low = first << below(static_cast<uint64_t>(doublings) + 1);
    return between(low, low * 2 < last ? low * 2 : last);
  }

 private:
  uint64_t state_;
};

}  // namespace plc_gateway::simulation
