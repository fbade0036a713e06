// Finds the program that owns a local variable in the controller's directory: the prefix rule beside the equality rule.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// One program of the directory.
struct LocalRecord {
  uint32_t number;
  char name[PLC_NAME_BYTES];
};

// Both return the first match among count records, or null.

// The scope name begins with the record's name; an empty record name matches every scope (D11).
const LocalRecord* match_scope_prefix(const LocalRecord* records, uint32_t count, const char* scope_name);

// The names are equal.
const LocalRecord* match_scope_whole(const LocalRecord* records, uint32_t count, const char* scope_name);

}  // namespace plc
