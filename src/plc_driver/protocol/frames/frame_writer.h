// Bounded writer of requests: fails once, stays failed, is asked once at the end.
#pragma once

#include <cstdint>
#include <cstring>

#include "plc_driver/protocol/frames/wire_format.h"

namespace plc {

// Writes a request into bytes[0 .. capacity - 1]. The head's length, complement and sequence number are written when
// the request is sent; until then they are not set.
struct FrameWriter {
  uint8_t* bytes;
  uint32_t capacity;
  uint32_t length;
  bool failed;

  FrameWriter(uint8_t* buffer, uint32_t buffer_bytes)
      : bytes(buffer), capacity(buffer_bytes), length(kClassOffset), failed(false) {}

  // Room for count bytes, or null from the first time there is none.
  uint8_t* reserve(uint32_t count) {
    if (failed || capacity - length < count) {
      failed = true;
      return nullptr;
    }
    uint8_t* at = bytes + length;
    length += count;
    return at;
  }

  void put(uint8_t value) {
    uint8_t* at = reserve(1);
    if (at != nullptr) *at = value;
  }

  void put16(uint32_t value) {
    uint8_t* at = reserve(2);
    if (at == nullptr) return;
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
  }

  void put_zeros(uint32_t count) {
    uint8_t* at = reserve(count);
    if (at != nullptr) memset(at, 0, count);
  }

  void put_bytes(const uint8_t* source, uint32_t count) {
    uint8_t* at = reserve(count);
    if (at != nullptr) memcpy(at, source, count);
  }

  // Class and command: where every request begins.
  void put_command(uint8_t request_class, uint8_t command) {
    put(request_class);
    put(command);
  }

  // What the head's length field says of this request.
  uint32_t counted_bytes() const { return length - kUncountedBytes; }
};

// A writer with a buffer of its own.
template <uint32_t kBytes>
struct Request : FrameWriter {
  uint8_t storage[kBytes];

  Request() : FrameWriter(storage, kBytes) {}
};
using ReadRequest = Request<kReadRequestBytes>;
using WriteRequest = Request<kWriteRequestBytes>;

inline void store16(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

inline void store32(uint8_t* at, uint32_t value) {
  store16(at, value >> 16);
  store16(at + 2, value);
}

}  // namespace plc
