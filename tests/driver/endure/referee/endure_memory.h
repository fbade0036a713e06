// The controller's memory, word by word, with everything that changed during the call of the host that is under way.
#pragma once

#include "tests/driver/endure/referee/endure_basics.h"

namespace plc_endure {

class Memory {
 public:
  explicit Memory(uint32_t cells) : words_(cells) {}

  uint32_t size() const { return static_cast<uint32_t>(words_.size()); }
  uint16_t word(uint32_t cell) const { return words_[cell]; }
  void set(uint32_t cell, uint16_t value);
  // What was set until here was set at once.
  void end_of_request();

  // From here on changes are kept.
  void begin_call();
  // The moments of the call, from its beginning (0) to now.
  uint32_t moments() const { return static_cast<uint32_t>(ends_.size()) + 1; }
  uint16_t word_at(uint32_t moment, uint32_t cell) const;

 private:
  struct Change {
    uint32_t cell;
    uint16_t before;
  };
  std::vector<uint16_t> words_;
  std::vector<Change> changes_;
  std::vector<uint32_t> ends_;  // by request that changed something: how many changes there were behind it
};

}  // namespace plc_endure
