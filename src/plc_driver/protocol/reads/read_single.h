// Reads one register: a run of elements of one variable, in two exchanges.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/protocol/handles/resolve_request.h"

namespace plc {

// Reads value->count elements of entry from this element offset on into value->data. Returns 0 or 3. Rewrites
// value->count for 64-bit types and strings.
uint32_t read_register(const TagEntry& entry, NameScope scope, uint32_t reg_id, uint32_t element, RegValue* value,
                       ConnContext* conn);

}  // namespace plc
