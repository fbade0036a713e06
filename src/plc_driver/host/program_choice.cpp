// The program of a local variable in the guarded build: an exact name wins, an ambiguous beginning is refused.
#include "plc_driver/host/program_choice.h"

#include <cstring>

namespace plc {

bool find_program(const char* scope_name, const LocalRecord** program) {
  uint32_t beginnings = 0;
  *program = nullptr;
  for (uint32_t i = 0; i < localNum; ++i) {
    const LocalRecord& record = LocalInfo[i];
    const size_t length = strlen(record.name);
    if (strncmp(scope_name, record.name, length) != 0) continue;
    const bool is_whole = scope_name[length] == '\0';
    if (is_whole || beginnings == 0) *program = &record;
    if (is_whole) return true;
    ++beginnings;
  }
  return beginnings <= 1;
}

}  // namespace plc
