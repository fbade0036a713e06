// The character set of a file's text: found out, and turned into UTF-8 without a byte order mark.
#pragma once

#include <string>
#include <string_view>

namespace tag_check {

enum class Encoding { kUtf8, kUtf16Little, kUtf16Big };

struct DecodedText {
  Encoding encoding = Encoding::kUtf8;
  bool has_mark = false;
  bool is_whole = true;    // false: bytes that are no UTF-16
  std::string converted;   // of UTF-16, as far as it is whole
  std::string_view bytes;  // of UTF-8, behind the mark

  std::string_view text() const { return encoding == Encoding::kUtf8 ? bytes : std::string_view(converted); }
};

// bytes outlive the result. Other sets than UTF-16 pass for UTF-8: their names are looked at one by one.
DecodedText decode_text(std::string_view bytes);

// "UTF-16 (little endian)" and the like.
const char* encoding_name(Encoding encoding);

}  // namespace tag_check
