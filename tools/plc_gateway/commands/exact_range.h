// Limits that are kept to the last bit: a number of 64 bits beside a limit that is a double.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/plc_gateway/model/data_types.h"

namespace plc_gateway {

// Of an element by its bits. A limit of a REAL is taken as the REAL that is nearest to it: with the limit 0.1 the value
// 0.1 is allowed, though as a REAL it is a little more. Nothing is within a limit that is no number.
bool is_at_least(const TypeFacts& facts, uint64_t bits, double limit);
bool is_at_most(const TypeFacts& facts, uint64_t bits, double limit);

// The bytes that a text may have: 20 of "STRING(20)"; 0 when the type says none.
size_t text_bytes(const std::string& declared_type);

}  // namespace plc_gateway
