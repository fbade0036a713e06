// Reads a frame of known length: every offset answers, with 0 behind the end.
#pragma once

#include <cstdint>

namespace plc {

struct FrameView {
  const uint8_t* bytes;
  uint32_t length;

  uint8_t at(uint32_t offset) const { return offset < length ? bytes[offset] : uint8_t{0}; }

  // Big-endian.
  uint32_t unit_at(uint32_t offset) const { return static_cast<uint32_t>(at(offset)) << 8 | at(offset + 1); }
  uint32_t double_unit_at(uint32_t offset) const { return unit_at(offset) << 16 | unit_at(offset + 2); }
};

}  // namespace plc
