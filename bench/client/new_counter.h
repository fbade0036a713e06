// How often the program has allocated by new: the linker finds this one before that of the C++ library.
#pragma once

#include <cstdint>

namespace bench {

uint64_t allocations();

}  // namespace bench
