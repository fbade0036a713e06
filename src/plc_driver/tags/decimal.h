// Reads decimals as the C library does, with the range of a 32-bit long on every build.
#pragma once

#include <cstdint>

namespace plc {

// A decimal and how many characters it took; used 0 means that there is none.
struct Decimal {
  int32_t value;
  uint32_t used;
};

// Leading white space, an optional sign, digits; what follows is left. Saturates at the ends of int32_t. Reads text[0]
// to text[length - 1] at most.
Decimal parse_decimal(const char* text, uint32_t length);

}  // namespace plc
