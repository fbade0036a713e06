// The controller's memory: allocation of places, handles and their inverse.
#include "tools/plc_sim/variables/memory.h"

namespace plc_sim {
namespace {

// Bit requests carry 16 bits of an address, so both parts with bits lie below 0x10000.
constexpr uint32_t kBitWordsBase = 0x8000;
constexpr uint32_t kValueWordsBase = 0x01020000;
constexpr uint32_t kSecondCharFlag = 0x80000000;
constexpr std::array<uint32_t, 3> kMaxWords{kBitWordsBase / kBitsPerWord, 0x8000, 0x00400000};

// Device codes that a host puts into bit requests by itself: their variables must stay in the bank of that code.
constexpr uint8_t kDeviceMr = 17;
constexpr uint8_t kDeviceLr = 18;
constexpr uint8_t kFirstFurtherBank = 0x40;
constexpr uint8_t kLastFurtherBank = 0xFE;

size_t index_of(Part part) { return static_cast<size_t>(part); }

}  // namespace

Handle handle_of(const Place& place) {
  switch (place.part) {
    case Part::kBitAddressed:
      return {place.bank, place.word * kBitsPerWord + place.bit};
    case Part::kBitWords:
      return {place.bank, kBitWordsBase + place.word};
    case Part::kValueWords:
      break;
  }
  return {place.bank, (kValueWordsBase + place.word) | (place.second_char ? kSecondCharFlag : 0)};
}

std::optional<Place> place_of(const Handle& handle) {
  Place place;
  place.bank = handle.area;
  if (handle.address < kBitWordsBase) {
    place.part = Part::kBitAddressed;
    place.word = handle.address / kBitsPerWord;
    place.bit = handle.address % kBitsPerWord;
    return place;
  }
  if (handle.address < kBitWordsBase + kMaxWords[index_of(Part::kBitWords)]) {
    place.part = Part::kBitWords;
    place.word = handle.address - kBitWordsBase;
    return place;
  }
  const uint32_t address = handle.address & ~kSecondCharFlag;
  if (address < kValueWordsBase || address >= kValueWordsBase + kMaxWords[index_of(Part::kValueWords)]) {
    return std::nullopt;
  }
  place.word = address - kValueWordsBase;
  place.second_char = (handle.address & kSecondCharFlag) != 0;
  return place;
}

uint16_t Memory::word(uint8_t bank, Part part, uint32_t index) const {
  const auto found = banks_.find(bank);
  if (found == banks_.end()) return 0;
  const Words& words = found->second.parts[index_of(part)];
  return index < words.size() ? words[index] : uint16_t{0};
}

bool Memory::set_word(uint8_t bank, Part part, uint32_t index, uint16_t value) {
  const auto found = banks_.find(bank);
  if (found == banks_.end()) return false;
  Words& words = found->second.parts[index_of(part)];
  if (index >= words.size()) return false;
  words[index] = value;
  return true;
}

bool Memory::bit(const Place& place) const {
  return ((static_cast<unsigned>(word(place.bank, place.part, place.word)) >> place.bit) & 1U) != 0;
}

void Memory::set_bit(const Place& place, bool value) {
  const unsigned old = word(place.bank, place.part, place.word);
  const unsigned mask = 1U << place.bit;
  set_word(place.bank, place.part, place.word, static_cast<uint16_t>(value ? old | mask : old & ~mask));
}

std::optional<Place> Memory::take(uint8_t device, Part part, uint32_t words) {
  const uint32_t limit = kMaxWords[index_of(part)];
  if (words > limit) return std::nullopt;
  uint8_t& bank_number = current_bank_.try_emplace(device, device).first->second;
  const bool may_move = device != kDeviceMr && device != kDeviceLr;
  while (banks_[bank_number].parts[index_of(part)].size() + words > limit) {
    if (!may_move) return std::nullopt;
    uint8_t further = kFirstFurtherBank;
    while (further < kLastFurtherBank && banks_.count(further) != 0) ++further;
    if (banks_.count(further) != 0) return std::nullopt;
    bank_number = further;
  }
  Bank& bank = banks_[bank_number];
  Place place;
  place.bank = bank_number;
  place.part = part;
  place.word = static_cast<uint32_t>(bank.parts[index_of(part)].size());
  place.units = words;
  bank.parts[index_of(part)].resize(place.word + words);
  words_ += words;
  bank.next_bit[index_of(part)] = 0;
  return place;
}

std::optional<Place> Memory::take_words(uint8_t device, uint32_t units) {
  return take(device, Part::kValueWords, units);
}

std::optional<Place> Memory::take_bit_addressed_words(uint8_t device, uint32_t units) {
  return take(device, Part::kBitAddressed, units);
}

std::optional<Place> Memory::take_bit(uint8_t device, Part part) {
  const auto current = current_bank_.find(device);
  if (current != current_bank_.end()) {
    Bank& bank = banks_[current->second];
    uint32_t& next_bit = bank.next_bit[index_of(part)];
    if (next_bit != 0) {
      Place place;
      place.bank = current->second;
      place.part = part;
      place.word = static_cast<uint32_t>(bank.parts[index_of(part)].size()) - 1;
      place.bit = next_bit;
      next_bit = (next_bit + 1) % kBitsPerWord;
      return place;
    }
  }
  const auto place = take(device, part, 1);
  if (place) banks_[place->bank].next_bit[index_of(part)] = 1;
  return place;
}

std::optional<Place> Memory::take_bits(uint8_t device, Part part, uint32_t count, uint32_t first_bit) {
  auto place = take(device, part, (first_bit + count + kBitsPerWord - 1) / kBitsPerWord);
  if (place) {
    place->bit = first_bit;
    place->units = 1;
  }
  return place;
}

}  // namespace plc_sim
