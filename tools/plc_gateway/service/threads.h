// The threads that a program may still start.
#pragma once

#include <cstddef>
#include <string>

namespace plc_gateway {

// Why this process cannot have so many threads at once now; empty when it can. A library that cannot start one of its
// own ends the process without a word.
std::string problem_with_threads(size_t count);

}  // namespace plc_gateway
