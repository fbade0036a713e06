// Which alias belongs to which variable: names of today matched with those that the journal has known.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "tools/plc_gateway/journal/row_store.h"
#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

class Names {
 public:
  // `stored` in the order of their aliases. Rows up to `last_id` may hold samples of the variables that are not polled
  // any more.
  Names(std::vector<StoredName> stored, const std::vector<Variable>& variables, uint64_t last_id);

  // What has to be written.
  std::vector<StoredName> changed() const;
  const std::vector<StoredName>& all() const { return all_; }

  // Those that are polled no more and of which rows from `first_id` on may hold samples. Replaced: a variable of today
  // has the name with another type.
  struct Former {
    std::unordered_set<uint64_t> kept;
    std::unordered_set<uint64_t> replaced;
    uint64_t last_row = 0;  // the last one that may hold samples of them
  };
  Former former(uint64_t first_id) const;

  // Of these, samples are stored; of the other ones that are polled no more, none are. True: there is something to be
  // written.
  bool settle(const std::unordered_set<uint64_t>& occurring);

  const std::vector<uint64_t>& alias_of() const { return alias_of_; }  // by index, the retired ones behind today's
  const std::vector<uint32_t>& index_of() const { return index_of_; }  // by alias
  const std::vector<Variable>& retired() const { return retired_; }

 private:
  void retire(const std::vector<Variable>& variables, uint64_t last_id);

  std::vector<StoredName> all_;
  std::vector<bool> is_changed_;
  std::unordered_set<uint64_t> replaced_;
  std::vector<uint64_t> alias_of_;
  std::vector<uint32_t> index_of_;
  std::vector<Variable> retired_;
};

}  // namespace plc_gateway
