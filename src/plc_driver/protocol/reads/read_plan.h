// Classification of a batch: which names it reads and which of its elements belong together.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Reads the first slotCount slots of OMRON_TEMP; fills INIT_TAG with their names, merges runs of consecutive elements
// into the run of their first slot, and sets reg_init_num and reg_interact_num. slotCount is at most 100. Ends behind a
// printed line at an element that is out of its bounds, with what it has made so far.
PLC_PRIVATE_API void Reg_Classify_Sort(TagTable* table, int32_t slotCount);
}
