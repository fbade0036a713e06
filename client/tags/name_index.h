// Where the names of a list stand: their hashes in order, and no name itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace plc_client::core {

class NameIndex {
 public:
  void reserve(size_t names);
  void add(std::string_view name, uint32_t position);
  // Behind the last add() and before the first candidates().
  void finish();

  // Positions of names that may be this one, in the order in which they were added.
  std::vector<uint32_t> candidates(std::string_view name) const;

 private:
  struct Slot {
    uint32_t hash = 0;
    uint32_t position = 0;
  };

  std::vector<Slot> slots_;
};

}  // namespace plc_client::core
