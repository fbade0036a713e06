// The controller's memory, with the changes of the call under way.
#include "tests/driver/endure/referee/endure_memory.h"

namespace plc_endure {

void Memory::set(uint32_t cell, uint16_t value) {
  if (words_[cell] != value) {
    changes_.push_back({cell, words_[cell]});
    words_[cell] = value;
  }
}

void Memory::end_of_request() {
  const auto changes = static_cast<uint32_t>(changes_.size());
  if (changes > (ends_.empty() ? 0 : ends_.back())) ends_.push_back(changes);
}

void Memory::begin_call() {
  changes_.clear();
  ends_.clear();
}

uint16_t Memory::word_at(uint32_t moment, uint32_t cell) const {
  for (uint32_t i = moment == 0 ? 0 : ends_[moment - 1]; i < changes_.size(); ++i) {
    if (changes_[i].cell == cell) return changes_[i].before;  // the first change since then
  }
  return words_[cell];
}

}  // namespace plc_endure
