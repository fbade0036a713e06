// Texts from inputs: short inputs spell long words, so that the fuzzer need not find them letter by letter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

// Bytes below 0x80 stand for themselves, 0xFF for the byte behind it whatever that is, all others for a word.
template <size_t kCount>
std::string spelled(std::string_view bytes, const char* const (&words)[kCount]) {
  constexpr uint8_t kFirstWord = 0x80;
  constexpr uint8_t kRaw = 0xFF;
  std::string text;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = static_cast<uint8_t>(bytes[i]);
    if (byte < kFirstWord) {
      text += bytes[i];
    } else if (byte == kRaw) {
      if (++i < bytes.size()) text += bytes[i];
    } else {
      text += words[(byte - kFirstWord) % kCount];
    }
  }
  return text;
}

}  // namespace fuzz
