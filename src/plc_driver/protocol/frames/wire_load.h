// Big-endian numbers out of a frame; the caller has made sure that the bytes are there.
#pragma once

#include <cstdint>
#include <cstring>

namespace plc {

inline uint32_t load16(const uint8_t* at) { return static_cast<uint32_t>(at[0]) << 8 | at[1]; }

inline uint32_t load32(const uint8_t* at) {
  uint32_t value;
  memcpy(&value, at, sizeof value);
  return __builtin_bswap32(value);
}

}  // namespace plc
