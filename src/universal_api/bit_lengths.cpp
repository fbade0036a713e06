// How many bytes or words a number of bits takes.
#include "universal_api.h"

// The usual (bits + 7) / 8 would wrap for the last seven values of 32 bits.
uint32_t bit2byte_len(uint32_t bits) { return (bits >> 3) + ((bits & 7u) != 0 ? 1u : 0u); }

uint32_t bit2word_len(uint32_t bits) { return (bits >> 4) + ((bits & 15u) != 0 ? 1u : 0u); }
