// The descriptors that a program may still open.
#pragma once

#include <cstddef>
#include <string>

namespace plc_base {

// Why this process cannot have so many descriptors now; empty when it can. An event loop that lacks one of its own ends
// the process without a word.
std::string problem_with_descriptors(size_t count);

}  // namespace plc_base
