// Bytes of frames as the tests write them: literals in hexadecimal.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace plc_test {

using Bytes = std::vector<uint8_t>;

// The bytes of a text of two-digit hexadecimal numbers with any blanks between them. Anything else ends the process:
// a mistyped literal must not look like a shorter frame.
inline Bytes from_hex(std::string_view text) {
  std::string digits;
  for (const char c : text) {
    if (c == ' ' || c == '\n') continue;
    if (std::string_view("0123456789ABCDEFabcdef").find(c) == std::string_view::npos) {
      std::fprintf(stderr, "not a hexadecimal digit: %c\n", c);
      std::abort();
    }
    digits += c;
  }
  if (digits.size() % 2 != 0) {
    std::fputs("odd number of hexadecimal digits\n", stderr);
    std::abort();
  }
  Bytes bytes;
  for (size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// The bytes as text in hexadecimal, for messages of failed tests and for comparing with a literal.
inline std::string to_hex(const Bytes& bytes) {
  std::string text;
  char number[4];
  for (const uint8_t byte : bytes) {
    std::snprintf(number, sizeof number, text.empty() ? "%02X" : " %02X", byte);
    text += number;
  }
  return text;
}

// first followed by second.
inline Bytes operator+(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// The first count bytes.
inline Bytes prefix_of(const Bytes& bytes, size_t count) {
  return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count));
}

}  // namespace plc_test
