// The limit of the files that a configuration names and that are read as a whole.
#pragma once

#include <cstddef>

namespace plc_gateway {

constexpr size_t kMostNamedFileBytes = size_t{1} << 20U;

}  // namespace plc_gateway
