// How much heap the driver's code holds: the linker sends its allocations here first.
#pragma once

#include <cstddef>

namespace bench {

// Bytes asked for and not freed: now, and the most since the last reset_heap_peak.
size_t heap_bytes();
size_t peak_heap_bytes();
void reset_heap_peak();

}  // namespace bench
