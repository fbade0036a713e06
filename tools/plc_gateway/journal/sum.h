// The sum that stands beside what the journal stores: a database notices a damaged page only when the page no longer
// makes sense, and a changed number or text never.
#pragma once

#include <cstdint>
#include <string_view>

namespace plc_gateway {

class Sum {
 public:
  void add(uint64_t number) {
    step(number);
    step(number >> 32U);
  }
  void add_bytes(std::string_view bytes) {
    for (const char byte : bytes) step(static_cast<uint8_t>(byte));
  }
  // With its length: what ends one text cannot begin the next.
  void add_text(std::string_view text) {
    add(text.size());
    add_bytes(text);
  }
  uint32_t value() const { return sum_; }

 private:
  void step(uint64_t number) { sum_ = (sum_ ^ static_cast<uint32_t>(number)) * 16777619U; }

  uint32_t sum_ = 2166136261U;
};

}  // namespace plc_gateway
