// Finds the program that owns a local variable.
#include "plc_driver/tags/scope_match.h"

#include <cstring>

namespace plc {

const LocalRecord* match_scope_prefix(const LocalRecord* records, uint32_t count, const char* scope_name) {
  for (uint32_t i = 0; i < count; ++i) {
    if (strncmp(scope_name, records[i].name, strlen(records[i].name)) == 0) return &records[i];
  }
  return nullptr;
}

const LocalRecord* match_scope_whole(const LocalRecord* records, uint32_t count, const char* scope_name) {
  for (uint32_t i = 0; i < count; ++i) {
    if (strcmp(scope_name, records[i].name) == 0) return &records[i];
  }
  return nullptr;
}

}  // namespace plc
