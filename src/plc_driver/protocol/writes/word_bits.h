// Bits of 16-bit words, and the hexadecimal helpers that go with them.
#pragma once

#include <cstdint>

#include "plc_driver/private_api.h"

extern "C" {

// Value of n hexadecimal digits, most significant first; 0 for n below 1. A bad digit counts as -1. Wraps at 32 bits.
PLC_PRIVATE_API int32_t hexToDec(const char* text, int32_t n);

// 0 to 15 for a hexadecimal digit of either case, else -1.
PLC_PRIVATE_API int32_t getIndexOfSigns(int32_t c);

// base doubled n times, modulo 2^32; base for n below 1.
PLC_PRIVATE_API uint32_t mathN(uint32_t base, int32_t n);

// Copies bits of words, from bit (bit mod 16) of words[0] up to but not including bit + count, into out, packed from
// its first bit on; other bits of out stay. The caller's arrays hold what that takes: for bit >= 16 more than count
// bits are copied. Returns out.
PLC_PRIVATE_API uint8_t* BatchReadWord(const uint16_t* words, uint8_t* out, int32_t bit, uint32_t count);

// The same with the bits from the 17th on taken from later_words.
PLC_PRIVATE_API uint8_t* BatchReadWord2(const uint16_t* words, const uint16_t* later_words, uint8_t* out, int32_t bit,
                                        uint32_t count);
}
