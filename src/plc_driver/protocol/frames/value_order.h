// Byte orders of 16-, 32- and 64-bit values, both directions: units travel big-endian, the low-order unit first; the
// host holds little-endian values.
#pragma once

#include <cstdint>

#include "plc_driver/protocol/frames/reply_view.h"

namespace plc {

// Stores count units of a reply into the host's buffer, which may be unaligned.
inline void copy_units_to_host(const ReplyBuffer& reply, uint32_t offset, uint32_t count, uint8_t* host) {
  const uint32_t whole = offset < reply.filled ? (reply.filled - offset) / 2 : 0;
  const uint32_t direct = count < whole ? count : whole;
  const uint8_t* wire = reply.bytes + offset;
  for (uint32_t i = 0; i < direct; ++i) {
    host[2 * i] = wire[2 * i + 1];
    host[2 * i + 1] = wire[2 * i];
  }
  for (uint32_t i = direct; i < count; ++i) {
    host[2 * i] = reply.at(offset + 2 * i + 1);
    host[2 * i + 1] = reply.at(offset + 2 * i);
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
