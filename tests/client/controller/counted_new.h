// Counts what the program takes from the free store.
#pragma once

#include <cstddef>

namespace plc_client_test {

// How often this thread has called operator new.
size_t allocations_of_this_thread();

}  // namespace plc_client_test
