// The program of a local variable in the guarded build: an exact name wins, an ambiguous beginning is refused.
#include "plc_driver/host/program_choice.h"

#include "plc_driver/guard_lines.h"

namespace plc {

const LocalRecord* choose_whole_program(const char* scope_name) {
  const LocalRecord* whole = match_scope_whole(LocalInfo, localNum, scope_name);
  return whole != nullptr ? whole : match_scope_prefix(LocalInfo, localNum, scope_name);
}

bool has_clear_program(const TagEntry& entry) {
  if (entry.is_global == 1 || match_scope_whole(LocalInfo, localNum, entry.scope_name) != nullptr ||
      count_scope_prefixes(LocalInfo, localNum, entry.scope_name) <= 1) {
    return true;
  }
  print_guard("program of the variable is ambiguous");
  return false;
}

}  // namespace plc
