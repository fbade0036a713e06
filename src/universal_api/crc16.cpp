// CRC-16 of Modbus RTU with its two bytes exchanged, from a byte-wise table in two halves.
#include "universal_api.h"

namespace {

// Reflected form of x^16 + x^15 + x^2 + 1.
constexpr uint16_t kReflectedPolynomial = 0xA001;

constexpr uint32_t divide_byte(uint32_t byte) {
  uint32_t remainder = byte;
  for (int bit = 0; bit < 8; ++bit) {
    remainder = (remainder & 1u) != 0 ? (remainder >> 1) ^ kReflectedPolynomial : remainder >> 1;
  }
  return remainder;
}

struct ByteTable {
  uint8_t bytes[256];
  constexpr uint8_t operator[](uint32_t index) const { return bytes[index]; }
};

constexpr ByteTable build_half(uint32_t shift) {
  ByteTable table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    table.bytes[byte] = static_cast<uint8_t>((divide_byte(byte) >> shift) & 0xFFu);
  }
  return table;
}

// "Hi" holds the low half of each remainder: in reflected order it is the half that goes on the wire first.
constexpr ByteTable auchCRCHi = build_half(0);
constexpr ByteTable auchCRCLo = build_half(8);

static_assert(auchCRCHi[0] == 0x00 && auchCRCHi[1] == 0xC1 && auchCRCHi[2] == 0x81 && auchCRCHi[3] == 0x40 &&
                  auchCRCHi[4] == 0x01 && auchCRCHi[5] == 0xC0 && auchCRCHi[6] == 0x80 && auchCRCHi[7] == 0x41,
              "first half of the Modbus table");
static_assert(auchCRCLo[0] == 0x00 && auchCRCLo[1] == 0xC0 && auchCRCLo[2] == 0xC1 && auchCRCLo[3] == 0x01 &&
                  auchCRCLo[4] == 0xC3 && auchCRCLo[5] == 0x03 && auchCRCLo[6] == 0x02 && auchCRCLo[7] == 0xC2,
              "second half of the Modbus table");

}  // namespace

uint16_t crc16(const uint8_t* bytes, uint32_t length) {
  if (length == 0) return 0xFFFF;
  // Deliberate: the length counts in 8 bits, so 257 bytes give the CRC of the first one (D43).
  const uint32_t counted_bytes = ((length - 1) & 0xFFu) + 1;
  uint8_t hi = 0xFF;
  uint8_t lo = 0xFF;
  for (uint32_t position = 0; position < counted_bytes; ++position) {
    const uint32_t index = static_cast<uint32_t>(hi) ^ bytes[position];
    hi = static_cast<uint8_t>(lo ^ auchCRCHi[index]);
    lo = auchCRCLo[index];
  }
  return static_cast<uint16_t>((static_cast<uint32_t>(hi) << 8) | lo);
}
