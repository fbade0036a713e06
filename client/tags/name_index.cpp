// Hashes are sorted, not put into a table: names that somebody has chosen, all of them the same one, cost no more than
// others.
#include "client/tags/name_index.h"

#include <algorithm>
#include <functional>

namespace plc_client::core {
namespace {

uint32_t hash_of(std::string_view name) { return static_cast<uint32_t>(std::hash<std::string_view>()(name)); }

}  // namespace

void NameIndex::reserve(size_t names) { slots_.reserve(names); }

void NameIndex::add(std::string_view name, uint32_t position) { slots_.push_back({hash_of(name), position}); }

void NameIndex::finish() {
  std::stable_sort(slots_.begin(), slots_.end(), [](const Slot& a, const Slot& b) { return a.hash < b.hash; });
}

std::vector<uint32_t> NameIndex::candidates(std::string_view name) const {
  const uint32_t hash = hash_of(name);
  const auto is_before = [](const Slot& slot, uint32_t wanted) { return slot.hash < wanted; };
  std::vector<uint32_t> positions;
  for (auto at = std::lower_bound(slots_.begin(), slots_.end(), hash, is_before);
       at != slots_.end() && at->hash == hash; ++at) {
    positions.push_back(at->position);
  }
  return positions;
}

}  // namespace plc_client::core
