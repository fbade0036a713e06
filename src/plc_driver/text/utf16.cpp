// UTF-8 to and from UTF-16.
#include "plc_driver/text/utf16.h"

namespace plc {

uint32_t utf8_sequence_length(uint8_t lead) {
  if (lead < 0xC0) return 1;
  if (lead < 0xE0) return 2;
  if (lead < 0xF0) return 3;
  if (lead < 0xF8) return 4;
  return lead < 0xFC ? 5 : 6;
}

uint32_t encode_utf8_unit(uint32_t unit, uint8_t* out) {
  if (unit <= 0x7F) {
    out[0] = static_cast<uint8_t>(unit);
    return 1;
  }
  if (unit < 0x800) {
    out[0] = static_cast<uint8_t>(0xC0 | unit >> 6);
    out[1] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
    return 2;
  }
  out[0] = static_cast<uint8_t>(0xE0 | unit >> 12);
  out[1] = static_cast<uint8_t>(0x80 | (unit >> 6 & 0x3F));
  out[2] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
  return 3;
}

}  // namespace plc

extern "C" {

uint32_t utf8ToUnicodeChar(const uint8_t* utf8, uint32_t* codePoint) {
  if (utf8 == nullptr || codePoint == nullptr) return 0;
  const uint32_t length = plc::utf8_sequence_length(utf8[0]);
  // Value bits of a lead byte by sequence length; a byte below 0xC0 stands for itself, stray continuation or not (D1).
  static constexpr uint8_t kLeadMask[7] = {0, 0xFF, 0x1F, 0x0F, 0x07, 0x03, 0x01};
  uint32_t value = utf8[0] & kLeadMask[length];
  for (uint32_t i = 1; i < length; ++i) value = value << 6 | (utf8[i] & 0x3FU);
  *codePoint = value;
  return length;
}

int32_t utf8ToUnicode(const char* utf8, uint16_t* out, int32_t capacity) {
  if (utf8 == nullptr || out == nullptr || *utf8 == '\0') return 0;
  const auto* in = reinterpret_cast<const uint8_t*>(utf8);
  int32_t count = 0;
  do {
    uint32_t value = 0;
    in += utf8ToUnicodeChar(in, &value);
    ++count;
    if (count >= capacity) return count;  // one more than was stored: callers take it as the unit count (D2)
    *out++ = static_cast<uint16_t>(value);
    *out = 0;
  } while (*in != 0);
  return count;
}

void unicodeToUtf8(const uint8_t* utf16be, int32_t byteCount, uint8_t* out) {
  const int32_t units = byteCount / 2;
  for (int32_t i = 0; i < units; ++i, utf16be += 2) {
    out += plc::encode_utf8_unit(static_cast<uint32_t>(utf16be[0]) << 8 | utf16be[1], out);
  }
  *out = 0;
}
}
