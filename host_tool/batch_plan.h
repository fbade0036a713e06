// Shares variables out to batch reads: one scope per call, and sizes at which the driver leaves no slot unread.
#ifndef HOST_TOOL_BATCH_PLAN_H_
#define HOST_TOOL_BATCH_PLAN_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "plc_driver.h"
#include "tag_reference.h"

namespace plc_host {

// What a slot of a batch delivers.
enum class SlotPart {
  kElement,   // one element of up to 32 bits
  kLowHalf,   // the low half of a 64-bit value
  kHighHalf,  // not walked by the driver: the slot before it stores the high half here
  kText,      // two bytes of a string
};

struct BatchSlot {
  size_t reference;  // which of the variables asked for
  SlotPart part;
  uint32_t register_id;
  uint32_t element;
  uint16_t count;
  size_t name_bytes;
  uint8_t names;   // written by the driver for this slot, without merged ones
  bool mergeable;  // with a neighbour whose element is the next one
};

using Batch = std::vector<BatchSlot>;

// Why the batch read cannot deliver this variable as the single read does; nothing when it can.
std::optional<std::string> why_not_batched(const TagReference& reference);

// The batches of the chosen variables (positions in references), those of one scope together, scopes in the order of
// their first mention. None of the chosen has a why_not_batched. Throws PlanError when one has an element that no
// offset names.
std::vector<Batch> plan_batches(const std::vector<TagReference>& references, const std::vector<size_t>& chosen);

// True when the driver reads every slot of the batch: its share of each frame pair leaves none over, and each frame
// holds its names.
bool is_read_completely(const Batch& batch);

}  // namespace plc_host

#endif  // HOST_TOOL_BATCH_PLAN_H_
