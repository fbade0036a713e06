// Batches that cannot be right whatever the controller answers; the guarded build refuses them.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace plc {

// False behind a printed line. The batch stands in OMRON_TEMP, with its elements' counts as they were given.
bool can_batch_be_right(const TagTable& table, uint32_t slots);

}  // namespace plc
