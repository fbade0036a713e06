// Tests of the CRC against a bit-by-bit computation of its own.
#include <gtest/gtest.h>

#include <vector>

#include "tests/support/guarded_buffer.h"
#include "universal_api.h"

namespace {

// The CRC that Modbus RTU publishes, one bit at a time; not exchanged.
uint16_t compute_modbus_crc(const std::vector<uint8_t>& bytes) {
  unsigned crc = 0xFFFF;
  for (const uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      const bool carry = (crc & 1u) != 0;
      crc >>= 1;
      if (carry) crc ^= 0xA001u;
    }
  }
  return static_cast<uint16_t>(crc);
}

uint16_t exchange_bytes(uint16_t crc) { return static_cast<uint16_t>((crc << 8) | (crc >> 8)); }

std::vector<uint8_t> random_bytes(size_t count) {
  std::vector<uint8_t> bytes(count);
  uint32_t state = 0x2545F491;
  for (uint8_t& byte : bytes) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<uint8_t>(state >> 24);
  }
  return bytes;
}

TEST(Crc16, LengthZero_ReturnsFfffWithoutReading) { EXPECT_EQ(crc16(nullptr, 0), 0xFFFF); }

TEST(Crc16, NineDigits_Give374B) {
  const uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  EXPECT_EQ(crc16(digits, 9), 0x374B);
}

TEST(Crc16, HighByte_IsTheOneThatGoesOnTheWireFirst) {
  // Read of ten holding registers from station 1, as a Modbus RTU frame carries it: C5 CD.
  const uint8_t frame[] = {0x01, 0x03, 0x00, 0x00, 0x00, 0x0A};
  EXPECT_EQ(crc16(frame, sizeof frame), 0xC5CD);
}

TEST(Crc16, EveryLengthUpTo600_EqualsBitByBitUnderTheLengthRule) {
  const std::vector<uint8_t> bytes = random_bytes(600);
  for (uint32_t length = 1; length <= 600; ++length) {
    const size_t counted = (length - 1) % 256 + 1;
    const std::vector<uint8_t> prefix(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(counted));
    EXPECT_EQ(crc16(bytes.data(), length), exchange_bytes(compute_modbus_crc(prefix))) << "length " << length;
  }
}

TEST(Crc16, Length256_ProcessesAllBytes) {
  const std::vector<uint8_t> bytes = random_bytes(256);
  EXPECT_EQ(crc16(bytes.data(), 256), exchange_bytes(compute_modbus_crc(bytes)));
}

TEST(Crc16, Length257_ProcessesOneByteAndReadsNoMore_D43) {
  const plc_test::GuardedBuffer one_byte(1, 0x5C);
  EXPECT_EQ(crc16(one_byte.data(), 257), crc16(one_byte.data(), 1));
  const std::vector<uint8_t> exact(1, 0x5C);
  EXPECT_EQ(crc16(exact.data(), 257), exchange_bytes(compute_modbus_crc(exact)));
}

TEST(Crc16, LargestLength_Processes255Bytes) {
  const std::vector<uint8_t> bytes = random_bytes(255);
  EXPECT_EQ(crc16(bytes.data(), 0xFFFFFFFFu), exchange_bytes(compute_modbus_crc(bytes)));
}

TEST(Crc16, EveryFirstByte_UsesItsOwnTableRow) {
  for (unsigned value = 0; value < 256; ++value) {
    const uint8_t byte = static_cast<uint8_t>(value);
    EXPECT_EQ(crc16(&byte, 1), exchange_bytes(compute_modbus_crc({byte}))) << "byte " << value;
  }
}

}  // namespace
