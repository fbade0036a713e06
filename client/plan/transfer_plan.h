// Cuts the elements of a variable into calls that the driver can carry out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "client/tags/tag_reference.h"

namespace plc_client::core {

// Elements that one call transfers, in the order of the user's elements.
struct ElementRun {
  uint32_t offset;  // of the first element, counted in elements
  uint32_t count;   // elements
};

// Elements that the driver has no offset for, or a variable that it cannot transfer.
class PlanError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Bytes of a reply that arrives in one piece, and of a resolved name in it at most: the contract build takes what the
// first segment holds for the whole reply.
inline constexpr size_t kSegmentBytes = 1460;
inline constexpr size_t kResolveHeadBytes = 17;
inline constexpr size_t kResolvedNameBytes = 24;
inline constexpr size_t kBytesPerSubscript = 4;

// The runs of a read or a write of everything but strings. Throws PlanError when the driver would ask for other
// elements than the chosen ones.
//
// A read names every element, so any consecutive offsets make a run. A write names every element too, but the
// controller stores the values from the first one on: its runs must also be consecutive in the controller.
std::vector<ElementRun> plan_elements(const TagReference& reference, Direction direction,
                                      const RequestRules& rules = {});

// Exchanges that the write of one element's bit takes: its name and the bit, or its name, the word around it and the
// word again.
size_t exchanges_per_bit(const TagEntry& entry);

// Pieces of a string, in 16-bit units of two bytes.
struct StringPiece {
  uint32_t offset;
  uint32_t units;
};

// Enough pieces for the declared length (reads) or for this many units (writes).
std::vector<StringPiece> plan_string_read(const TagEntry& entry);
std::vector<StringPiece> plan_string_write(uint32_t units);

// Bytes of a string that its read pieces reach: the declared ones, unless there are more than reads can name.
size_t reachable_text_bytes(const TagEntry& entry);

// Whether the text that all pieces brought goes on where no read reaches.
bool goes_on_out_of_reach(const TagEntry& entry, const std::string& text);

// Bytes that an element's name takes in a request, at most.
size_t name_bytes(const TagEntry& entry, const Subscripts& subscripts);

}  // namespace plc_client::core
