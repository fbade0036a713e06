// What the tests of batch reads start from: elements between guard bytes, and replies for many names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tests/driver/protocol/protocol_fixture.h"

namespace plc_test {

// One element of a batch as a test writes it.
struct BatchElement {
  uint32_t id;
  uint32_t element = 0;
  uint16_t count = 1;
};

// A resolve reply for this many names: name i has the handle 80+i, 00 i D4 E0+b and the bit number b = bit_number.
Bytes resolve_many(size_t names, uint8_t bit_number = 0);

class BatchTest : public ProtocolTest {
 protected:
  static constexpr uint32_t kUntouched = 0xA5A5A5A5;

  // Calls the driver with these elements, whose values are kUntouched before.
  uint32_t read(const std::vector<BatchElement>& elements);

  // count elements of one array, from this element on.
  static std::vector<BatchElement> consecutive(uint32_t id, uint32_t first, uint32_t count);
  // The same plain variable, count times.
  static std::vector<BatchElement> repeated(uint32_t id, uint32_t count);

  std::vector<uint32_t> values() const;
  // The names of one resolve request as the peer sees them, whatever its counts say: all sub-blocks of one scope kind.
  std::vector<std::string> names_of(size_t request) const;

  // Answers one frame pair: so many names, these values.
  void answer_frame(size_t names, std::string_view value_hex, uint8_t bit_number = 0);
  void answer_frame(size_t names, const Bytes& values, uint8_t bit_number = 0);

  BatchReadRequest* batch() { return reinterpret_cast<BatchReadRequest*>(batch_.data()); }
  const BatchReadRequest* batch() const { return reinterpret_cast<const BatchReadRequest*>(batch_.data()); }

  GuardedBuffer batch_{0};
  size_t count_ = 0;
};

// A head of 14 bytes, then these values.
Bytes value_reply(const Bytes& values);

}  // namespace plc_test
