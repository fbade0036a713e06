// Appends text and decimals to a fixed array that always stays NUL-terminated and zero behind its text.
#pragma once

#include <cstdint>
#include <cstring>

namespace plc {

// A text of at most Capacity - 1 bytes. What does not fit is cut; every caller sizes its array so that nothing is.
template <uint32_t Capacity>
struct BoundedText {
  char bytes[Capacity] = {};
  uint32_t length = 0;

  void append(const char* text, uint32_t text_length) {
    const uint32_t room = Capacity - 1 - length;
    const uint32_t copied = text_length < room ? text_length : room;
    memcpy(bytes + length, text, copied);
    length += copied;
  }

  void append(const char* text) { append(text, static_cast<uint32_t>(strlen(text))); }

  void append_number(uint32_t number, uint32_t base) {
    constexpr uint32_t kDigits = 10;  // of 2^32 - 1 in decimal
    char digits[kDigits];
    uint32_t first = kDigits;
    do {
      digits[--first] = "0123456789ABCDEF"[number % base];
      number /= base;
    } while (number != 0);
    append(digits + first, kDigits - first);
  }

  void append_decimal(uint32_t number) { append_number(number, 10); }

  void append_signed(int32_t number) {
    if (number < 0) append("-", 1);
    append_decimal(number < 0 ? 0U - static_cast<uint32_t>(number) : static_cast<uint32_t>(number));
  }

  void append_hex(uint32_t number) { append_number(number, 16); }
};

}  // namespace plc
