// Shares variables out to batch reads: one scope per call, and sizes at which the driver leaves no slot unread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/driver/driver_session.h"
#include "client/tags/tag_reference.h"
#include "plc_driver.h"

namespace plc_client::core {

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
  size_t reply_bytes;  // of the resolved name
  uint8_t names;       // written by the driver for this slot, without merged ones
  bool mergeable;      // with a neighbour whose element is the next one
};

using Batch = std::vector<BatchSlot>;

// Why the batch read cannot deliver this variable as the single read does; nothing when it can. The guarded build
// refuses what the contract build would answer wrongly.
std::optional<std::string> why_not_batched(const TagReference& reference, bool is_guarded);

// The batches of the chosen variables (positions in references), those of one scope together, scopes in the order of
// their first mention. None of the chosen has a why_not_batched. Throws PlanError when one has an element that no
// offset names.
std::vector<Batch> plan_batches(const std::vector<TagReference>& references, const std::vector<size_t>& chosen,
                                const RequestRules& rules);

// True when the driver reads every slot of the batch: each frame holds its names, and the equal shares leave no slot
// over, which the guarded build alone would read in further frames.
bool is_read_completely(const Batch& batch, const RequestRules& rules);

// The same for two variables that one batch can hold.
std::string scope_key(const TagReference& reference);

// Slots that the variable takes.
size_t slot_count(const TagReference& reference);

// Pairs of exchanges, names and values, in which the driver reads the batch.
size_t frame_count(const Batch& batch, const RequestRules& rules);

// The share of a frame's room, in slots, names and bytes, that the slots of one variable take at least.
double frame_load(const Batch& slots, const RequestRules& rules);

// Slots that one pair of exchanges takes at most.
inline constexpr size_t kSlotsPerFrame = 34;

}  // namespace plc_client::core
