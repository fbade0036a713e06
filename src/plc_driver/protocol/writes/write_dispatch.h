// Record -> named write function.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// No write function serves the record.
constexpr int32_t kNoWriter = -1;

// Writes through the function that serves tag's bit width, shape, kind and scope. May rewrite value->count of strings.
// Returns 0, 3 or kNoWriter.
int32_t dispatch_write(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag);

}  // namespace plc
