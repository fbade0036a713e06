// UTF-8 taken apart, strictly (no sequence longer than needed, no half of a surrogate pair, nothing beyond U+10FFFF),
// and the blanks of all scripts in it.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace plc_base {

struct CodePoint {
  char32_t value;
  size_t bytes;  // of its sequence: 1 to 4
};

// The character at the start of text; nothing when text is empty or does not begin with a well-formed sequence.
std::optional<CodePoint> first_code_point(std::string_view text);

// The beginning of text, of at most most_bytes, that does not end within a character. Bytes that belong to no character
// may be parted anywhere.
std::string_view whole_characters(std::string_view text, size_t most_bytes);

// True when text is well-formed throughout.
bool is_utf8(std::string_view text);

// The text without blanks at its ends, those of word processors and of wide scripts too.
std::string_view without_blanks(std::string_view text);

// Whether these bytes are a blank that is no space, tab or carriage return.
bool is_unusual_blank(std::string_view character);

}  // namespace plc_base
