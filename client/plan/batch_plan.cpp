// The driver's shares and runs as a host has to know them to form batches.
#include "client/plan/batch_plan.h"

#include <algorithm>

#include "client/plan/transfer_plan.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

constexpr size_t kRegistersPerFrame = 35;  // the driver makes total / 35 + 1 frame pairs
constexpr size_t kSlotsPerRun = 50;
constexpr size_t kRequestBytes = 4096;
constexpr size_t kFrameHeadBytes = 24;  // frame head and the head of one block of local variables
constexpr size_t kNamesPerFrame = 100;  // their references fit one reply of 4096 bytes
constexpr uint8_t kNamesPerBool = 2;

bool is_text(const TagEntry& entry) { return entry.shape == PLC_STRING; }

BatchSlot make_slot(const TagReference& reference, size_t number, SlotPart part, uint32_t element,
                    const Subscripts& subscripts) {
  const TagEntry& entry = reference.tag->entry;
  BatchSlot slot{};
  slot.reference = number;
  slot.part = part;
  slot.register_id = *reference.tag->register_id;
  slot.element = element;
  slot.count = 1;
  slot.name_bytes = name_bytes(entry, subscripts);
  slot.reply_bytes = kResolvedNameBytes + kBytesPerSubscript * subscripts.size();
  slot.names = entry.bit_width == 1 ? kNamesPerBool : 1;
  slot.mergeable = entry.bit_width != 1 && (entry.dim1_high != 0 || entry.string_length != 0);
  return slot;
}

// A 64-bit variable takes two slots. The count of 2 makes the driver write its name twice and go on behind the second
// slot, whose value nobody overwrites then.
void add_wide_slots(const TagReference& reference, size_t number, Batch& slots) {
  slots.push_back(make_slot(reference, number, SlotPart::kLowHalf, 0, {}));
  slots.back().count = 2;
  slots.back().names = 2;
  slots.push_back(make_slot(reference, number, SlotPart::kHighHalf, 0, {}));
  slots.back().count = 0;
  slots.back().names = 0;
}

// A string is asked for at every second character, so that no two slots are consecutive and merged into one run, each
// of whose references would stand for the whole run.
void add_text_slots(const TagReference& reference, size_t number, Batch& slots) {
  const int32_t length = std::max(reference.tag->entry.string_length, 1);
  for (int32_t at = 0; at < length; at += 2) {
    slots.push_back(make_slot(reference, number, SlotPart::kText, static_cast<uint32_t>(at), {at}));
  }
}

void add_element_slots(const TagReference& reference, size_t number, Batch& slots) {
  const std::vector<Subscripts> elements = chosen_elements(reference);
  size_t next = 0;
  for (const ElementRun& run : plan_elements(reference, Direction::kRead)) {
    for (uint32_t i = 0; i < run.count; ++i) {
      slots.push_back(make_slot(reference, number, SlotPart::kElement, run.offset + i, elements[next++]));
    }
  }
}

void add_slots(const TagReference& reference, size_t number, Batch& slots) {
  const TagEntry& entry = reference.tag->entry;
  if (is_text(entry)) return add_text_slots(reference, number, slots);
  if (entry.bit_width == 64) return add_wide_slots(reference, number, slots);
  add_element_slots(reference, number, slots);
}

// Slots that the driver takes in one step from this one on.
size_t run_length(const Batch& batch, size_t head) {
  size_t run = batch[head].count;
  if (!batch[head].mergeable) return run;
  for (size_t at = head; at + 1 < batch.size() && run < kSlotsPerRun; ++at, ++run) {
    const BatchSlot& next = batch[at + 1];
    if (next.register_id != batch[at].register_id || next.element != batch[at].element + 1) break;
  }
  return run;
}

struct FrameLoad {
  size_t bytes = kFrameHeadBytes;
  size_t names = 0;
  size_t reply_bytes = kResolveHeadBytes;
  bool fits(const RequestRules& rules) const {
    if (bytes > kRequestBytes || names > rules.names(kNamesPerFrame)) return false;
    return rules.is_guarded || reply_bytes <= kSegmentBytes;
  }
};

// Walks one frame as the driver does; returns the slot at which the next one starts.
size_t walk_frame(const Batch& batch, size_t start, size_t end, FrameLoad& load) {
  size_t at = start;
  while (at < std::min(end, batch.size())) {
    const size_t run = run_length(batch, at);
    const size_t names = batch[at].mergeable ? run : batch[at].names;
    for (size_t i = 0; i < names; ++i) {
      const size_t named = batch[at].mergeable ? std::min(at + i, batch.size() - 1) : at;
      load.bytes += batch[named].name_bytes;
      load.reply_bytes += batch[named].reply_bytes;
    }
    load.names += names;
    at += std::max<size_t>(run, 1);
  }
  return at;
}

// Slots of the next batch, of so many that are left: whole frames as long as there are some, since equal shares of what
// does not fill its frames leave slots over.
size_t wanted_slots(size_t left, size_t per_frame) {
  if (left >= 2 * per_frame) return 2 * per_frame;
  return left > per_frame && left % 2 != 0 ? per_frame : left;
}

// Cuts one scope's slots into batches that are read completely, in as few frames as they take.
void cut_batches(const Batch& slots, const RequestRules& rules, std::vector<Batch>& batches) {
  for (size_t start = 0; start < slots.size();) {
    size_t size = wanted_slots(slots.size() - start, rules.names(kSlotsPerFrame));
    Batch batch;
    for (; size > 0; --size) {
      const auto first = slots.begin() + static_cast<std::ptrdiff_t>(start);
      batch.assign(first, first + static_cast<std::ptrdiff_t>(size));
      if (is_read_completely(batch, rules)) break;
    }
    if (size == 0) throw PlanError("its name is too long for a batch read");
    batches.push_back(batch);
    start += size;
  }
}

}  // namespace

std::string scope_key(const TagReference& reference) {
  const TagEntry& entry = reference.tag->entry;
  // The number goes with the name where the controller has no program of that name.
  return entry.is_global == 1 ? "global" : std::to_string(entry.local_index) + " " + entry.scope_name;
}

std::optional<std::string> why_not_batched(const TagReference& reference, bool is_guarded) {
  const TagEntry& entry = reference.tag->entry;
  if (value_kind(entry) == ValueKind::kRaw) return "the batch read delivers text alone for types without a width";
  if (entry.bit_width == 8) return "the batch read stores nothing for 8-bit types";
  if (entry.bit_width == 64 && is_guarded) return "a batch takes no 64-bit variable";
  if (entry.bit_width == 64 && !declared_ranges(entry).empty()) {
    return "the batch read loses the high half of a 64-bit array element";
  }
  if (entry.bit_width == 1 && is_em_bit_array(entry) && entry.name_kind == 1) {
    return "the batch read takes the bit of an EM array from another place of the reply than the single read";
  }
  if (entry.bit_width == 1 && is_guarded && is_on_em(entry) && !declared_ranges(entry).empty()) {
    return "a batch takes no BOOL array in EM memory";
  }
  return std::nullopt;
}

namespace {

// Walks the batch as the driver does; true when every frame fits. frames are those that it took.
bool walk_batch(const Batch& batch, const RequestRules& rules, size_t& frames, size_t& end) {
  size_t total = 0;
  for (const BatchSlot& slot : batch) total += slot.count;
  const size_t shares = total / kRegistersPerFrame + 1;
  const size_t span = batch.size() / shares;
  if (span == 0) return false;
  for (frames = 0, end = 0; rules.is_guarded ? end < batch.size() : frames < shares; ++frames) {
    FrameLoad load;
    end = walk_frame(batch, end, end + span, load);
    if (!load.fits(rules)) return false;
  }
  return rules.is_guarded || batch.size() % shares == 0;
}

}  // namespace

bool is_read_completely(const Batch& batch, const RequestRules& rules) {
  if (batch.empty() || batch.back().part == SlotPart::kLowHalf) return false;
  size_t frames = 0;
  size_t end = 0;
  return walk_batch(batch, rules, frames, end) && end >= batch.size();
}

size_t frame_count(const Batch& batch, const RequestRules& rules) {
  size_t frames = 0;
  size_t end = 0;
  walk_batch(batch, rules, frames, end);
  return frames;
}

double frame_load(const Batch& slots, const RequestRules& rules) {
  size_t bytes = 0;
  size_t names = 0;
  size_t reply_bytes = 0;
  for (const BatchSlot& slot : slots) {
    bytes += slot.names * slot.name_bytes;
    names += slot.names;
    reply_bytes += slot.names * slot.reply_bytes;
  }
  const auto share = [](size_t part, size_t all) { return static_cast<double>(part) / static_cast<double>(all); };
  const double request =
      std::max(share(slots.size(), rules.names(kSlotsPerFrame)),
               std::max(share(names, rules.names(kNamesPerFrame)), share(bytes, kRequestBytes - kFrameHeadBytes)));
  return rules.is_guarded ? request : std::max(request, share(reply_bytes, kSegmentBytes - kResolveHeadBytes));
}

size_t slot_count(const TagReference& reference) {
  const TagEntry& entry = reference.tag->entry;
  if (is_text(entry)) return static_cast<size_t>(std::max(entry.string_length, 1) + 1) / 2;
  if (entry.bit_width == 64) return 2;
  size_t count = 1;
  for (const SubscriptRange& range : reference.chosen) {
    count *= static_cast<size_t>(int64_t{range.high} - int64_t{range.low} + 1);
  }
  return count;
}

std::vector<Batch> plan_batches(const std::vector<TagReference>& references, const std::vector<size_t>& chosen,
                                const RequestRules& rules) {
  std::vector<std::string> scopes;
  std::vector<Batch> slots_of_scope;
  for (const size_t i : chosen) {
    const std::string scope = scope_key(references[i]);
    const auto found = std::find(scopes.begin(), scopes.end(), scope);
    const auto place = static_cast<size_t>(found - scopes.begin());
    if (found == scopes.end()) {
      scopes.push_back(scope);
      slots_of_scope.emplace_back();
    }
    add_slots(references[i], i, slots_of_scope[place]);
  }
  std::vector<Batch> batches;
  for (const Batch& slots : slots_of_scope) cut_batches(slots, rules, batches);
  return batches;
}

}  // namespace plc_client::core
