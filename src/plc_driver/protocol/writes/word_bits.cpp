// Bits of 16-bit words.
#include "plc_driver/protocol/writes/word_bits.h"

namespace {

constexpr uint32_t kWordBits = 16;

void copy_bits(const uint16_t* first, const uint16_t* later, uint8_t* out, int32_t bit, uint32_t count) {
  const uint32_t start = static_cast<uint32_t>(bit) % kWordBits;
  const int64_t end = static_cast<int64_t>(bit) + count;
  uint32_t to = 0;
  for (int64_t from = start; from < end; ++from, ++to) {
    const int64_t word = from / kWordBits;
    const uint32_t value = word == 0 ? first[0] : later[word - 1];
    const uint32_t mask = 1U << to % 8;
    const bool is_set = (value >> static_cast<uint32_t>(from % kWordBits) & 1) != 0;
    out[to / 8] = static_cast<uint8_t>(is_set ? out[to / 8] | mask : out[to / 8] & ~mask);
  }
}

}  // namespace

extern "C" {

int32_t getIndexOfSigns(int32_t c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

int32_t hexToDec(const char* text, int32_t n) {
  uint32_t value = 0;
  for (int32_t i = 0; i < n; ++i) value = value * 16 + static_cast<uint32_t>(getIndexOfSigns(text[i]));
  return static_cast<int32_t>(value);
}

uint32_t mathN(uint32_t base, int32_t n) {
  if (n < 1) return base;
  return n < 32 ? base << n : 0;
}

uint8_t* BatchReadWord(const uint16_t* words, uint8_t* out, int32_t bit, uint32_t count) {
  copy_bits(words, words + 1, out, bit, count);
  return out;
}

uint8_t* BatchReadWord2(const uint16_t* words, const uint16_t* later_words, uint8_t* out, int32_t bit, uint32_t count) {
  copy_bits(words, later_words, out, bit, count);
  return out;
}
}
