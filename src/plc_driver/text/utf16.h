// UTF-8 to and from UTF-16, as leniently as the tag files and the controller need it: nothing is ever rejected.
#pragma once

#include <cstdint>

#include "plc_driver/private_api.h"

extern "C" {

// Decodes the sequence that starts at utf8[0]; its length follows from the lead byte alone and the bytes behind it are
// not checked (up to five of them are read). Returns the bytes consumed, 1 to 6; 0 and nothing stored for a null
// pointer.
PLC_PRIVATE_API uint32_t utf8ToUnicodeChar(const uint8_t* utf8, uint32_t* codePoint);

// Converts a NUL-terminated text that is followed by at least six zero bytes. out receives at most capacity - 1 units
// and a zero behind the last one. Returns the number of characters; capacity, one more than it stored, when the text
// holds capacity or more. Values above 0xFFFF keep their low 16 bits.
PLC_PRIVATE_API int32_t utf8ToUnicode(const char* utf8, uint16_t* out, int32_t capacity);

// Converts byteCount / 2 big-endian units; out has room for three bytes a unit and a terminator. Surrogates are encoded
// one by one, a zero unit becomes a zero byte.
PLC_PRIVATE_API void unicodeToUtf8(const uint8_t* utf16be, int32_t byteCount, uint8_t* out);
}

namespace plc {

// Bytes of the sequence that this lead byte announces, 1 to 6.
uint32_t utf8_sequence_length(uint8_t lead);

// Writes the unit as one to three bytes of UTF-8. Returns how many.
uint32_t encode_utf8_unit(uint32_t unit, uint8_t* out);

}  // namespace plc
