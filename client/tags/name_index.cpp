// The table of hashes: a name stands at the place of its hash or behind it.
#include "client/tags/name_index.h"

#include <functional>

namespace plc_client::core {
namespace {

uint32_t hash_of(std::string_view name) { return static_cast<uint32_t>(std::hash<std::string_view>()(name)); }

}  // namespace

void NameIndex::reserve(size_t names) {
  size_t size = 2;
  while (size < names + names / 2) size *= 2;
  slots_.assign(size, Slot());
}

void NameIndex::add(std::string_view name, uint32_t position) {
  const uint32_t hash = hash_of(name);
  size_t at = hash & (slots_.size() - 1);
  while (slots_[at].position != kEmpty) at = (at + 1) & (slots_.size() - 1);
  slots_[at] = {hash, position};
}

std::vector<uint32_t> NameIndex::candidates(std::string_view name) const {
  std::vector<uint32_t> positions;
  if (slots_.empty()) return positions;
  const uint32_t hash = hash_of(name);
  for (size_t at = hash & (slots_.size() - 1); slots_[at].position != kEmpty; at = (at + 1) & (slots_.size() - 1)) {
    if (slots_[at].hash == hash) positions.push_back(slots_[at].position);
  }
  return positions;
}

}  // namespace plc_client::core
