// What names a place of the controller's memory on the wire.
#pragma once

#include <cstdint>

namespace plc_sim {

struct Handle {
  uint8_t area = 0;
  uint32_t address = 0;
  bool is_null() const { return area == 0 && address == 0; }
  bool operator==(const Handle& other) const { return area == other.area && address == other.address; }
  bool operator!=(const Handle& other) const { return !(*this == other); }
};

}  // namespace plc_sim
