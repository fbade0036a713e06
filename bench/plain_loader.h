// The comparison for tag-file loading: two passes of fgets and strchr that fill the same records, written plainly.
#pragma once

#include <cstdint>

#include "plc_driver.h"

namespace bench {

// Reads the plain records of a file into an array that the caller frees. Knows what the benchmarks' files hold: lines
// below 256 bytes with all columns, ids of plain records in file order. Returns null when the file cannot be read.
TagEntry* load_plainly(const char* path, uint32_t* count);

}  // namespace bench
