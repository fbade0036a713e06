// Which program of the directory owns a local variable whose program may be matched by its beginning.
#pragma once

#include "plc_driver.h"
#include "plc_driver/build_kind.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/tags/scope_match.h"

namespace plc {

// Guarded: the record with exactly this name, else the first that the scope name begins with, or null.
const LocalRecord* choose_whole_program(const char* scope_name);

// Guarded: false, behind a printed line, for a local variable whose scope name begins with several records' names and
// equals none.
bool has_clear_program(const TagEntry& entry);

inline const LocalRecord* choose_program(const char* scope_name) {
  if constexpr (kGuarded) return choose_whole_program(scope_name);
  return match_scope_prefix(LocalInfo, localNum, scope_name);
}

inline bool has_one_program(const TagEntry& entry) {
  if constexpr (kGuarded) return has_clear_program(entry);
  return true;
}

}  // namespace plc
