// Reads a register by its number, as a panel does: number, offset and count as they stand.
#pragma once

#include <string>

#include "client/driver/driver_session.h"
#include "client/plan/tag_transfer.h"
#include "client/tags/tag_list.h"

namespace plc_client::core {

// The driver takes no reply that holds more elements.
inline constexpr uint32_t kMostCounted = 4096;

// What is odd about an offset and a count in the driver's units, which name something else than the record's elements:
// "offsets 10 to 12 are outside 0..9". Empty when nothing is, and for texts and types without a width.
std::string odd_numbers(const Tag& tag, uint32_t offset, uint32_t count);

// Why no call can read so many of the driver's units from a variable: empty when one may.
std::string too_many(const Tag& tag, uint32_t count);

// The elements that the call stored, as a value of the record's type. offset and count are in the driver's units.
TagResult read_number(DriverSession& session, const TagList& tags, uint32_t register_id, uint32_t offset,
                      uint32_t count);

}  // namespace plc_client::core
