// Numbers as they stand on the wire, high byte first: appended to bytes, and read from bytes that may not be there.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "wire/wire.h"

namespace plc_sim {

inline void append_u16(Bytes& bytes, uint16_t value) {
  bytes.push_back(static_cast<uint8_t>(value >> 8U));
  bytes.push_back(static_cast<uint8_t>(value));
}

inline void append_u32(Bytes& bytes, uint32_t value) {
  append_u16(bytes, static_cast<uint16_t>(value >> 16U));
  append_u16(bytes, static_cast<uint16_t>(value));
}

// Written over bytes that are there; those that are not stay away.
inline void put_u16(Bytes& bytes, size_t at, unsigned value) {
  for (size_t i = 0; i < 2 && at + i < bytes.size(); ++i) bytes[at + i] = static_cast<uint8_t>(value >> (8 - 8 * i));
}

inline void put_u32(Bytes& bytes, size_t at, uint32_t value) {
  put_u16(bytes, at, value >> 16U);
  put_u16(bytes, at + 2, value);
}

// Bytes of somebody else, who keeps them: behind their end everything is 0.
class ByteView {
 public:
  ByteView(const void* bytes, size_t size) : bytes_(static_cast<const uint8_t*>(bytes)), size_(size) {}
  explicit ByteView(const Bytes& bytes) : ByteView(bytes.data(), bytes.size()) {}

  size_t size() const { return size_; }
  uint8_t u8(size_t at) const { return at < size_ ? bytes_[at] : uint8_t{0}; }
  uint16_t u16(size_t at) const { return static_cast<uint16_t>((static_cast<unsigned>(u8(at)) << 8U) | u8(at + 1)); }
  uint32_t u32(size_t at) const { return (static_cast<uint32_t>(u16(at)) << 16U) | u16(at + 2); }
  uint32_t swapped_u32(size_t at) const {
    return u8(at) | (static_cast<uint32_t>(u8(at + 1)) << 8U) | (static_cast<uint32_t>(u8(at + 2)) << 16U) |
           (static_cast<uint32_t>(u8(at + 3)) << 24U);
  }
  ByteView part(size_t at, size_t count) const {
    const size_t start = std::min(at, size_);
    return {bytes_ + start, std::min(count, size_ - start)};
  }
  Bytes bytes() const { return {bytes_, bytes_ + size_}; }

 private:
  const uint8_t* bytes_;
  size_t size_;
};

}  // namespace plc_sim
