// Host request -> register id and element offset.
#pragma once

#include <cstdint>

namespace plc {

// Takes reg_type and address out of a host's record and sets reg_type to 0 when it is below 4: the host sees that
// (D37).
inline uint32_t take_register_id(uint8_t* reg_type, uint32_t address) {
  constexpr uint8_t kLastIgnoredType = 3;
  if (*reg_type <= kLastIgnoredType) *reg_type = 0;
  return static_cast<uint32_t>(*reg_type) << 16 | address >> 16;
}

inline uint32_t element_offset(uint32_t address) { return address & 0xFFFF; }

}  // namespace plc
