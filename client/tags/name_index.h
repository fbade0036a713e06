// Where the names of a list stand: a table of their hashes, which keeps no name itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace plc_client::core {

class NameIndex {
 public:
  // Room for so many names, without which add() must not be called.
  void reserve(size_t names);
  void add(std::string_view name, uint32_t position);

  // Positions of names that may be this one, in the order in which they were added.
  std::vector<uint32_t> candidates(std::string_view name) const;

 private:
  struct Slot {
    uint32_t hash = 0;
    uint32_t position = kEmpty;
  };
  static constexpr uint32_t kEmpty = 0xFFFFFFFF;

  std::vector<Slot> slots_;  // a power of two, a third of them empty at least
};

}  // namespace plc_client::core
