// What the parts of the endurance program share: bytes, chance, and the record of the last events.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace plc_endure {

using Bytes = std::vector<uint8_t>;

inline uint16_t big_endian16(const uint8_t* at) { return static_cast<uint16_t>(at[0] << 8U | at[1]); }

inline uint32_t big_endian32(const uint8_t* at) {
  return static_cast<uint32_t>(big_endian16(at)) << 16U | big_endian16(at + 2);
}

inline void store16(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 8U);
  at[1] = static_cast<uint8_t>(value);
}

inline void store32(uint8_t* at, uint32_t value) {
  store16(at, value >> 16U);
  store16(at + 2, value);
}

// Chance that a seed repeats.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint32_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    uint64_t mixed = state_;
    mixed = (mixed ^ mixed >> 30U) * 0xBF58476D1CE4E5B9U;
    mixed = (mixed ^ mixed >> 27U) * 0x94D049BB133111EBU;
    return static_cast<uint32_t>((mixed ^ mixed >> 31U) >> 32U);
  }
  uint32_t below(uint32_t bound) { return static_cast<uint32_t>(uint64_t{next()} * bound >> 32U); }
  bool once_in(uint32_t bound) { return below(bound) == 0; }

 private:
  uint64_t state_;
};

// The last events, for whoever looks into a failure. Its memory is there from the beginning: what is kept must not look
// like a leak that fills slowly.
class Journal {
 public:
  Journal();

  // `text` lives for ever.
  void add(int64_t time_us, unsigned connection, const char* text, const uint8_t* bytes, size_t count);
  void add_note(int64_t time_us, const std::string& text);
  void print(std::FILE* out) const;

 private:
  struct Entry {
    int64_t time_us = 0;
    unsigned connection = 0;
    const char* text = nullptr;
    std::string note;
    size_t count = 0;
    Bytes bytes;
  };

  Entry& next_entry() { return entries_[count_++ % entries_.size()]; }

  std::vector<Entry> entries_;  // a ring
  uint64_t count_ = 0;
};

}  // namespace plc_endure
