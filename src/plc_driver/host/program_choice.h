// Which program of the directory owns a local variable whose program may be matched by its beginning.
#pragma once

#include "plc_driver.h"
#include "plc_driver/build_kind.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/tags/scope_match.h"

namespace plc {

// Guarded: finds the record with exactly this name, else the first that the scope name begins with, or null. False when
// it begins with several and equals none.
bool find_program(const char* scope_name, const LocalRecord** program);

// By order, the first record that the scope name begins with.
inline const LocalRecord* choose_program(const char* scope_name) {
  if constexpr (kGuarded) {
    const LocalRecord* program = nullptr;
    find_program(scope_name, &program);
    return program;
  }
  return match_scope_prefix(LocalInfo, localNum, scope_name);
}

// Guarded: false, behind a printed line, for a local variable whose program is not clear.
inline bool has_one_program(const TagEntry& entry) {
  if constexpr (kGuarded) {
    const LocalRecord* program = nullptr;
    if (entry.is_global != 1 && !find_program(entry.scope_name, &program)) {
      print_guard("program of the variable is ambiguous");
      return false;
    }
  }
  return true;
}

}  // namespace plc
