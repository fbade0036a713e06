// Values as people type them: the same spellings in every program, and the same words about what is none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace plc_base {

enum class ValueForm { kBool, kSigned, kUnsigned, kReal };

struct ValueType {
  const char* name;  // for messages: "INT"
  ValueForm form;
  unsigned bits;  // of one value
};

struct TypedNumber {
  uint64_t bits = 0;
  std::string problem;  // empty when the text is such a value
};

// One value: decimal (120, -5, +5), hexadecimal (0xFF) or binary (0b101) for the bits themselves, real (1.5e3, nan,
// inf), true, on, false or off for a BOOL, in any capitals. Blanks around it do not count.
TypedNumber typed_number(const ValueType& type, std::string_view text);

struct TypedText {
  std::string text;
  std::string problem;
};

// A text of at most so many bytes, as it stands or between double quotes with \n, \r, \t, \", \\ and \xNN in it.
TypedText typed_text(std::string_view text, size_t most_bytes);

// The text between double quotes, with typed_text's escapes for what a terminal would obey or hide.
std::string quoted_with_escapes(std::string_view text);

// The same without the quotes around it, and with the double quotes in it as they are: a form without quotes.
std::string text_with_escapes(std::string_view text);

struct TypedList {
  std::vector<std::string_view> elements;
  std::string problem;
};

// The elements of "[[1, 2], [3, 4]]" in their order, for ranges of these lengths; a flat list fills them in their
// order. No lengths: the text is the one element.
TypedList typed_elements(std::string_view text, const std::vector<size_t>& extents);

}  // namespace plc_base
