#include "tools/plc_gateway/journal/names.h"

#include <string>
#include <unordered_map>
#include <utility>

namespace plc_gateway {
namespace {

// A name cannot hold a zero byte.
std::string key_of(const Variable& variable) {
  return variable.name + '\0' + std::to_string(static_cast<unsigned>(variable.type));
}

bool looks_like(const Variable& a, const Variable& b) {
  return a.declared_type == b.declared_type && a.shape == b.shape;
}

}  // namespace

Names::Names(std::vector<StoredName> stored, const std::vector<Variable>& variables, uint64_t last_id)
    : all_(std::move(stored)), is_changed_(all_.size(), false) {
  std::unordered_map<std::string, size_t> place_of;
  for (size_t i = 0; i < all_.size(); ++i) place_of.emplace(key_of(all_[i].variable), i);

  uint64_t next_alias = all_.empty() ? 1 : all_.back().alias + 1;
  for (const Variable& variable : variables) {
    const auto [known, is_new] = place_of.emplace(key_of(variable), all_.size());
    if (is_new) {
      all_.push_back({next_alias++, variable, {}});
      is_changed_.push_back(true);
    }
    StoredName& name = all_[known->second];
    if (name.last_row || !looks_like(name.variable, variable)) {
      name.variable = variable;
      name.last_row.reset();
      is_changed_[known->second] = true;
    }
    alias_of_.push_back(name.alias);
  }

  index_of_.assign(next_alias, RowStore::kNoIndex);
  for (size_t i = 0; i < alias_of_.size(); ++i) index_of_[alias_of_[i]] = static_cast<uint32_t>(i);
  retire(variables, last_id);
}

void Names::retire(const std::vector<Variable>& variables, uint64_t last_id) {
  std::unordered_set<std::string> names_today;
  for (const Variable& variable : variables) names_today.insert(variable.name);
  for (size_t i = 0; i < all_.size(); ++i) {
    StoredName& name = all_[i];
    if (index_of_[name.alias] != RowStore::kNoIndex) continue;
    if (names_today.count(name.variable.name) != 0) replaced_.insert(name.alias);
    if (name.last_row) continue;
    name.last_row = last_id;
    is_changed_[i] = true;
  }
}

std::vector<StoredName> Names::changed() const {
  std::vector<StoredName> changed;
  for (size_t i = 0; i < all_.size(); ++i) {
    if (is_changed_[i]) changed.push_back(all_[i]);
  }
  return changed;
}

Names::Former Names::former(uint64_t first_id) const {
  Former former;
  if (first_id == 0) return former;
  for (const StoredName& name : all_) {
    if (!name.last_row || *name.last_row < first_id) continue;
    (replaced_.count(name.alias) != 0 ? former.replaced : former.kept).insert(name.alias);
    if (*name.last_row > former.last_row) former.last_row = *name.last_row;
  }
  return former;
}

bool Names::settle(const std::unordered_set<uint64_t>& occurring) {
  bool is_news = false;
  for (size_t i = 0; i < all_.size(); ++i) {
    StoredName& name = all_[i];
    if (!name.last_row) continue;
    if (occurring.count(name.alias) == 0) {
      if (*name.last_row != 0) is_changed_[i] = is_news = true;
      name.last_row = 0;
      continue;
    }
    index_of_[name.alias] = static_cast<uint32_t>(alias_of_.size());
    alias_of_.push_back(name.alias);
    retired_.push_back(name.variable);
  }
  return is_news;
}

}  // namespace plc_gateway
