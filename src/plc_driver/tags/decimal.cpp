// Reads decimals with the range of a 32-bit long.
#include "plc_driver/tags/decimal.h"

namespace plc {

static bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

Decimal parse_decimal(const char* text, uint32_t length) {
  uint32_t at = 0;
  while (at < length && is_space(text[at])) ++at;
  bool negative = false;
  if (at < length && (text[at] == '-' || text[at] == '+')) negative = text[at++] == '-';
  const uint32_t first_digit = at;
  // One more than INT32_MAX is what a negative number may reach.
  const uint32_t limit = negative ? 0x80000000U : 0x7FFFFFFFU;
  uint64_t magnitude = 0;
  for (; at < length; ++at) {
    const uint32_t digit = static_cast<uint32_t>(text[at]) - '0';
    if (digit > 9) break;
    magnitude = magnitude * 10 + digit;
    if (magnitude > limit) magnitude = limit;
  }
  if (at == first_digit) return {0, 0};
  const auto low = static_cast<uint32_t>(magnitude);
  return {static_cast<int32_t>(negative ? 0U - low : low), at};
}

}  // namespace plc
