// Reads a register by its number, as a panel does: number, offset and count as they stand.
#pragma once

#include <optional>
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

// A call that makes the driver ask for something else than its offset and count say.
struct OtherRequest {
  std::string what;         // "the driver takes the low 8 bits of a text's count: 300 asked for 44 units"
  std::string advice;       // numbers that ask for what they say
  bool is_nothing = false;  // it asks for no value at all, and returns 0
};

// Nothing when the driver asks for what the numbers say: of texts it sends 8 bits of the count, and of arrays of 64-bit
// types it drops what is no whole element.
std::optional<OtherRequest> other_request(const Tag& tag, uint32_t offset, uint32_t count);

// The elements that the call stored, as a value of the record's type. offset and count are in the driver's units.
// Those of another request are incomplete, and the remark says which they are; one for nothing has no value.
TagResult read_number(DriverSession& session, const TagList& tags, uint32_t register_id, uint32_t offset,
                      uint32_t count);

}  // namespace plc_client::core
