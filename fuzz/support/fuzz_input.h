// Takes a fuzz input apart into numbers and byte strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

// Reads an input from its beginning; once it is used up, everything is 0 or empty.
class Input {
 public:
  Input(const uint8_t* bytes, size_t length) : at_(bytes), left_(length) {}

  bool empty() const { return left_ == 0; }

  uint8_t byte() {
    if (left_ == 0) return 0;
    --left_;
    return *at_++;
  }

  uint16_t word() {
    const unsigned high = byte();
    return static_cast<uint16_t>(high << 8 | byte());
  }

  uint32_t double_word() {
    const uint32_t high = word();
    return high << 16 | word();
  }

  // A number below limit.
  uint32_t below(uint32_t limit) { return limit > 256 ? word() % limit : byte() % limit; }

  // Copies the next count bytes, fewer at the end, and returns how many.
  size_t copy_bytes(uint8_t* out, size_t count) {
    const size_t taken = count < left_ ? count : left_;
    if (taken > 0) memcpy(out, at_, taken);
    at_ += taken;
    left_ -= taken;
    return taken;
  }

  // All that is left.
  std::string text() {
    std::string out(reinterpret_cast<const char*>(at_), left_);
    at_ += left_;
    left_ = 0;
    return out;
  }

 private:
  const uint8_t* at_;
  size_t left_;
};

}  // namespace fuzz
