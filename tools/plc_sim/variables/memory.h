// The controller's memory: 16-bit words in banks, the places in it, and the handles that name places on the wire.
//
// A bank is one area byte of a handle. Its 32-bit addresses fall into three parts: bit addresses (word times 16 plus
// bit number), addresses of words that hold bits, and addresses of words that hold values.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "wire/handle.h"

namespace plc_sim {

constexpr uint32_t kBitsPerWord = 16;

enum class Part : uint8_t { kBitAddressed, kBitWords, kValueWords };

struct Place {
  uint8_t bank = 0;
  Part part = Part::kValueWords;
  uint32_t word = 0;
  uint32_t bit = 0;          // of a BOOL in its word; 0 for everything else
  uint32_t units = 1;        // 16-bit words from `word` on
  bool second_char = false;  // a position in a text that starts at the low byte of its word
};

Handle handle_of(const Place& place);

// Where a handle points, with one unit; empty when it is in none of the three parts.
std::optional<Place> place_of(const Handle& handle);

class Memory {
 public:
  // Words that nobody was given read as 0.
  uint16_t word(uint8_t bank, Part part, uint32_t index) const;
  // Words that nobody was given cannot be set: false.
  bool set_word(uint8_t bank, Part part, uint32_t index, uint16_t value);
  bool bit(const Place& place) const;
  void set_bit(const Place& place, bool value);

  // Each takes the next free words or bits of the device's bank, or of a further bank when that one is full (never
  // for devices whose own code travels in bit requests); empty when nothing is left.
  std::optional<Place> take_words(uint8_t device, uint32_t units);
  std::optional<Place> take_bit(uint8_t device, Part part);
  // `count` bits side by side, the first at `first_bit` of its word; whole words are taken.
  std::optional<Place> take_bits(uint8_t device, Part part, uint32_t count, uint32_t first_bit);
  // Whole words in the part whose addresses count bits.
  std::optional<Place> take_bit_addressed_words(uint8_t device, uint32_t units);

  using Words = std::vector<uint16_t>;
  struct Bank {
    std::array<Words, 3> parts;
    std::array<uint32_t, 3> next_bit{};  // first free bit of the last word that single bits share; 0 when none is open
  };
  const std::map<uint8_t, Bank>& banks() const { return banks_; }
  // Of all that was taken.
  uint64_t words() const { return words_; }

 private:
  std::optional<Place> take(uint8_t device, Part part, uint32_t words);

  std::map<uint8_t, Bank> banks_;
  std::map<uint8_t, uint8_t> current_bank_;
  uint64_t words_ = 0;
};

}  // namespace plc_sim
