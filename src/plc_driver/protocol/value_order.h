// Byte orders of 16-, 32- and 64-bit values, both directions: units travel big-endian, the low-order unit first; the
// host holds little-endian values.
#pragma once

#include <cstdint>

#include "plc_driver/protocol/reply_view.h"

namespace plc {

// Stores count units of a reply into the host's buffer, which may be unaligned.
inline void copy_units_to_host(const ReplyBuffer& reply, uint32_t offset, uint32_t count, uint8_t* host) {
  for (uint32_t i = 0; i < count; ++i, offset += 2, host += 2) {
    const uint8_t high = reply.at(offset);
    host[0] = reply.at(offset + 1);
    host[1] = high;
  }
}

// Writes count units of the host's buffer as they travel.
inline void copy_units_to_wire(const uint8_t* host, uint32_t count, uint8_t* wire) {
  for (uint32_t i = 0; i < count; ++i, host += 2, wire += 2) {
    wire[0] = host[1];
    wire[1] = host[0];
  }
}

}  // namespace plc
