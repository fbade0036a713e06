// Which program of the directory owns a local variable whose program may be matched by its beginning.
#pragma once

#include "plc_driver.h"
#include "plc_driver/build_kind.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/tags/scope_match.h"

namespace plc {

// By order: the first record that the scope name begins with (D11). Guarded: an exact name wins.
inline const LocalRecord* choose_program(const char* scope_name) {
  if constexpr (kGuarded) {
    const LocalRecord* whole = match_scope_whole(LocalInfo, localNum, scope_name);
    if (whole != nullptr) return whole;
  }
  return match_scope_prefix(LocalInfo, localNum, scope_name);
}

// Guarded: false, behind a printed line, when the scope name begins with several records' names and equals none.
inline bool has_one_program(const TagEntry& entry) {
  if constexpr (kGuarded) {
    if (entry.is_global != 1 && match_scope_whole(LocalInfo, localNum, entry.scope_name) == nullptr &&
        count_scope_prefixes(LocalInfo, localNum, entry.scope_name) > 1) {
      print_guard("program of the variable is ambiguous");
      return false;
    }
  }
  return true;
}

}  // namespace plc
