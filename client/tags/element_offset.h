// Which element the driver asks the controller for at an element offset, and which offset makes it ask for a given one.
//
// The driver turns an offset into subscripts by one rule for reads and by others for writes. The rules agree where
// every range starts at 0; elsewhere an element may have different offsets for reading and writing, or none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/values/value_type.h"
#include "plc_driver.h"

namespace plc_client::core {

// Subscripts in the order in which they are written, the first declared range first.
using Subscripts = std::vector<int32_t>;

enum class Direction { kRead, kWrite };

// Subscripts that the driver sends for an element offset counted in elements; nothing when a range has no extent.
std::optional<Subscripts> subscripts_at(const TagEntry& entry, Direction direction, uint32_t element);

// Offset, counted in elements, at which the driver asks for these subscripts; nothing when no offset does. The search
// starts at hint and covers every offset that a request can carry.
std::optional<uint32_t> find_element_offset(const TagEntry& entry, Direction direction, const Subscripts& wanted,
                                            uint32_t hint);

// Units in which the host counts: 2 for 64-bit types, whose offsets and counts are in 32-bit units, else 1.
uint32_t host_units_per_element(const TagEntry& entry);

// True for the bits that are written through the word that holds them, under a name formed for one element: BOOL
// arrays in EM memory.
bool is_em_bit_array(const TagEntry& entry);

// True for variables in EM memory.
bool is_on_em(const TagEntry& entry);

// "[1,2]", or "" without subscripts.
std::string subscript_text(const Subscripts& subscripts);

}  // namespace plc_client::core
