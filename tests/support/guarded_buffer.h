// A buffer of exactly the promised size between guard bytes, to show that nothing is written beside it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace plc_test {

// size bytes, all `fill` at first, between two rows of guard bytes. data() is aligned as malloc aligns, plus `shift`.
class GuardedBuffer {
 public:
  explicit GuardedBuffer(size_t size, uint8_t fill = 0, size_t shift = 0)
      : start_(kGuardBytes + shift), size_(size), bytes_(start_ + size + kGuardBytes, kGuard) {
    std::fill_n(bytes_.begin() + static_cast<std::ptrdiff_t>(start_), size_, fill);
  }

  uint8_t* data() { return bytes_.data() + start_; }
  const uint8_t* data() const { return bytes_.data() + start_; }
  char* text() { return reinterpret_cast<char*>(data()); }
  size_t size() const { return size_; }
  uint8_t operator[](size_t index) const { return bytes_.at(start_ + index); }

  // True while every guard byte before and after the buffer is unchanged.
  bool guards_intact() const {
    const auto is_guard = [](uint8_t byte) { return byte == kGuard; };
    const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(start_);
    return std::all_of(bytes_.begin(), first, is_guard) &&
           std::all_of(first + static_cast<std::ptrdiff_t>(size_), bytes_.end(), is_guard);
  }

  // True while no byte of the buffer itself differs from `fill`.
  bool holds_only(uint8_t fill) const {
    const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(start_);
    return std::all_of(first, first + static_cast<std::ptrdiff_t>(size_),
                       [fill](uint8_t byte) { return byte == fill; });
  }

  // The bytes of the buffer without its guards.
  std::vector<uint8_t> bytes() const { return std::vector<uint8_t>(data(), data() + size_); }

 private:
  static constexpr size_t kGuardBytes = 256;
  static constexpr uint8_t kGuard = 0xA5;

  size_t start_;
  size_t size_;
  std::vector<uint8_t> bytes_;
};

}  // namespace plc_test
