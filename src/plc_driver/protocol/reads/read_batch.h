// Reads many registers in one call, split over frames.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// Reads the first count slots of OMRON_TEMP, classified, into elements; total is the sum of the counts that the host
// asked for. Returns 0, 2 or 3. Writes the numbers of local programs into the table's records.
uint32_t read_batch(TagTable* table, BatchReadRequest* elements, uint32_t count, uint32_t total, ConnContext* conn);

}  // namespace plc
