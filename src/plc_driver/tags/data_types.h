// The data type table by name; the table itself and its look-ups by code are in plc_driver.h.
#pragma once

#include "plc_driver.h"

extern "C" {
// Beside the type table for whoever scales by powers of ten; the driver does not.
extern const uint32_t pow_val[2];
}

namespace plc {

// The row whose name is these length characters exactly, or null. length is 1 to 99.
const TypeEntry* find_type(const char* name, uint32_t length);

}  // namespace plc
