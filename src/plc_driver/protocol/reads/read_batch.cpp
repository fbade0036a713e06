// Reads many registers in one call. A frame is a pair of exchanges for an equal share of the slots.
#include "plc_driver/protocol/reads/read_batch.h"

#include "plc_driver/build_kind.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/protocol/handles/resolve_request.h"
#include "plc_driver/protocol/handles/value_request.h"
#include "plc_driver/protocol/link/exchange.h"
#include "plc_driver/protocol/reads/string_copies.h"
#include "plc_driver/tags/scope_match.h"
#include "plc_driver/tags/tag_lookup.h"

namespace plc {
namespace {

constexpr uint32_t kElementsPerFrame = 35;
constexpr uint32_t kWordBits = 16;

// One batch under way.
struct BatchRead {
  TagTable* table;
  BatchReadRequest* elements;
  uint32_t count;  // slots and elements
  ConnContext* conn;
  // By slot: bit position of its first name. A batch of one slot has one for each of its names, at most 34: with more
  // elements its share would be no slot.
  uint8_t bit_positions[kBatchSlots];
  ReplyBuffer reply;

  bool is_single() const { return count == 1; }
};

// The slots of one frame: [first, end); stop is where its walk ended.
struct Frame {
  uint32_t first;
  uint32_t end;
  uint32_t stop;
  uint32_t names;
};

// The record of a slot. Slots behind the last one given are all zero.
TagEntry* slot_entry(const BatchRead& batch, uint32_t slot) {
  return find_entry(*batch.table, groupID_table, slot < kBatchSlots ? OMRON_TEMP[slot].reg_id : 0);
}

uint32_t slot_element(uint32_t slot) { return slot < kBatchSlots ? OMRON_TEMP[slot].element : 0; }

bool is_bit(const TagEntry& entry) { return entry.bit_width == 1; }

// After a BOOL the walk goes on with the next slot, after anything else behind the run.
uint32_t next_slot(const TagEntry& entry, uint32_t slot) { return slot + (is_bit(entry) ? 1 : OMRON_TEMP[slot].run); }

// How many names a slot has in its frame: a BOOL's first and last only, unless it is alone in the batch.
uint32_t name_count(const BatchRead& batch, const TagEntry& entry, uint32_t slot) {
  constexpr uint32_t kFirstAndLast = 2;
  return is_bit(entry) && !batch.is_single() ? kFirstAndLast : OMRON_TEMP[slot].run;
}

Frame begin_frame(const BatchRead& batch, uint32_t first, uint32_t span) {
  const uint32_t end = first + span < batch.count ? first + span : batch.count;
  return {first, end, first, 0};
}

// Walks all frames without sending. False when a walk would stand at a slot with a run of 0. A slot without a record
// ends the look ahead: the frame that reaches it fails.
bool can_walk(const BatchRead& batch, uint32_t frames, uint32_t span) {
  uint32_t slot = 0;
  for (uint32_t f = 0; f <= frames && slot < batch.count; ++f) {
    const Frame frame = begin_frame(batch, slot, span);
    while (slot < frame.end) {
      if (OMRON_TEMP[slot].run == 0) return false;
      const TagEntry* entry = slot_entry(batch, slot);
      if (entry == nullptr) return true;
      slot = next_slot(*entry, slot);
    }
  }
  return true;
}

bool form_subscripts(const TagEntry& entry, uint32_t element, uint32_t slot, Subscripts* out) {
  if (entry.shape != PLC_STRING) return form_read_subscripts(entry, element, out);
  *out = form_single_subscript(slot_element(slot));  // not doubled, unlike in the single read (D33)
  return true;
}

// Names a run: every name takes the record of its own slot, and counts on from the head's element.
bool append_run_names(const BatchRead& batch, const TagEntry& head, uint32_t slot, FrameWriter* request) {
  const NameEncoder head_name(head.name);
  for (uint32_t j = 0; j < OMRON_TEMP[slot].run && !request->failed; ++j) {
    const TagEntry* entry = slot_entry(batch, slot + j);
    Subscripts subscripts;
    if (entry == nullptr) return false;
    if (!form_subscripts(*entry, OMRON_TEMP[slot].element + j, slot + j, &subscripts)) return false;
    if (entry == &head) {
      head_name.append(subscripts, request);
    } else {
      NameEncoder(entry->name).append(subscripts, request);
    }
  }
  return true;
}

bool append_bit_names(const BatchRead& batch, const TagEntry& entry, uint32_t slot, FrameWriter* request) {
  const uint32_t names = name_count(batch, entry, slot);
  const uint32_t last = OMRON_TEMP[slot].run - 1U;
  const NameEncoder name(entry.name);
  for (uint32_t n = 0; n < names && !request->failed; ++n) {
    const uint32_t j = batch.is_single() ? n : n * last;
    Subscripts subscripts;
    if (!form_subscripts(entry, OMRON_TEMP[slot].element + j, slot, &subscripts)) return false;
    name.append(subscripts, request);
  }
  return true;
}

// The scope of a slot; a local one's number goes into the table's own record (D34).
NameScope find_scope(TagEntry* entry) {
  if (entry->is_global == 1) return {true, 0};
  const LocalRecord* program = match_scope_whole(LocalInfo, localNum, entry->scope_name);
  if (program != nullptr) entry->local_index = static_cast<uint8_t>(program->number);
  return {false, entry->local_index};
}

bool opens_sub_block(const BatchRead& batch, const TagEntry& entry, uint32_t slot, uint32_t sub_blocks) {
  if (slot == 0 || sub_blocks == 0) return true;
  const TagEntry* previous = slot_entry(batch, slot - 1);
  return previous == nullptr || previous->is_global != entry.is_global;
}

// The count of the first sub-block becomes that of all names in the frame, at the place that the last one's kind has
// for it (D35).
void fix_name_count(bool last_is_global, uint32_t names, FrameWriter* request) {
  constexpr uint32_t kGlobalCountOffset = 16;
  constexpr uint32_t kLocalCountOffset = 22;
  store16(request->bytes + (last_is_global ? kGlobalCountOffset : kLocalCountOffset), names);
}

// Walks the frame's slots and names them. False when the frame cannot be built.
bool build_resolve(BatchRead* batch, Frame* frame, FrameWriter* request) {
  begin_batch_resolve(request);
  uint32_t sub_blocks = 0;
  bool last_is_global = false;
  uint32_t slot = frame->first;
  while (slot < frame->end && !request->failed) {
    TagEntry* entry = slot_entry(*batch, slot);
    if (entry == nullptr) return false;
    const NameScope scope = find_scope(entry);
    if (opens_sub_block(*batch, *entry, slot, sub_blocks)) {
      append_sub_block(request, scope, OMRON_TEMP[slot].run);
      ++sub_blocks;
      last_is_global = scope.is_global;
    }
    const bool named = is_bit(*entry) ? append_bit_names(*batch, *entry, slot, request)
                                      : append_run_names(*batch, *entry, slot, request);
    if (!named) return false;
    frame->names += name_count(*batch, *entry, slot);
    slot = next_slot(*entry, slot);
  }
  // A frame whose second request would not fit is not begun.
  if (request->failed || frame->names > kReferenceLimit) return false;
  frame->stop = slot;
  request->bytes[kSubBlockCountOffset] = static_cast<uint8_t>(sub_blocks);
  fix_name_count(last_is_global, frame->names, request);
  return true;
}

// A single element records the position of every name, a batch that of each slot's first name.
void record_bit_position(BatchRead* batch, uint32_t slot, uint32_t name, uint8_t position) {
  if (batch->is_single()) {
    batch->bit_positions[name] = position;
  } else if (name == 0) {
    batch->bit_positions[slot] = position;
  }
}

void build_value_request(BatchRead* batch, const Frame& frame, FrameWriter* request) {
  begin_value_request(request, frame.names);
  NameCursor name(batch->reply);
  for (uint32_t slot = frame.first; slot < frame.stop && !request->failed;) {
    const TagEntry& entry = *slot_entry(*batch, slot);
    const uint8_t size = static_cast<uint8_t>(keyence_gettype(entry.bit_width, OMRON_TEMP[slot].run));
    const uint32_t names = name_count(*batch, entry, slot);
    for (uint32_t n = 0; n < names && !request->failed; ++n, name.advance()) {
      NameHandle handle = handle_at(name);
      if (is_bit(entry)) {
        // No look at the device, unlike the single read (D36).
        const uint8_t position = entry.name_kind != 1 ? locate_word_bit(name) : take_address_bit(&handle);
        record_bit_position(batch, slot, n, position);
      }
      append_reference(request, handle, size);
    }
    slot = next_slot(entry, slot);
  }
}

// Stores one value; nothing behind the last element given.
void store_value(BatchRead* batch, uint32_t element, uint32_t value) {
  if (element < batch->count) batch->elements[element].value = value;
}

// Each bit goes to its own element, and shifted by its place in the run into the first one's value as well.
void store_bits(BatchRead* batch, uint32_t slot, uint32_t offset) {
  uint32_t collected = 0;
  for (uint32_t j = 0; j < OMRON_TEMP[slot].run; ++j) {
    const bool single = batch->is_single();
    const uint32_t position = single ? batch->bit_positions[j] : batch->bit_positions[slot] + j;
    const uint32_t word = batch->reply.unit_at(kValueOffset + offset + (single ? 2 * j : 0));
    const uint32_t bit = position < kWordBits ? word >> position & 1 : 0;
    if (j > 0) store_value(batch, slot + j, bit);
    if (j < 32) collected += bit << j;
  }
  store_value(batch, slot, collected);
}

// Guarded: how many elements of a run of strings stand before something else in the frame, 0 when none do. Each name of
// the run is asked for with the length of the run, so that what follows would be stored out of place.
[[maybe_unused]] uint32_t misplacing_run(const BatchRead& batch, const Frame& frame) {
  for (uint32_t slot = frame.first; slot < frame.stop;) {
    const TagEntry& entry = *slot_entry(batch, slot);
    const uint32_t run = OMRON_TEMP[slot].run;
    slot = next_slot(entry, slot);
    if (entry.bit_width == 0 && run > 1 && slot < frame.stop) return run;
  }
  return 0;
}

// Stores the values of one slot. Returns how many bytes of values they take.
uint32_t store_slot(BatchRead* batch, const TagEntry& entry, uint32_t slot, uint32_t offset) {
  const ReplyBuffer& reply = batch->reply;
  const uint32_t run = OMRON_TEMP[slot].run;
  const uint32_t at = kValueOffset + offset;
  switch (entry.bit_width) {
    case 16:
      for (uint32_t j = 0; j < run; ++j) store_value(batch, slot + j, reply.unit_at(at + 2 * j));
      return 2 * run;
    case 32:
      for (uint32_t j = 0; j < run; ++j) store_value(batch, slot + j, reply.double_unit_at(at + 4 * j));
      return 4 * run;
    case 64:
      for (uint32_t j = 0; j < 2 * run; ++j) store_value(batch, slot + j, reply.double_unit_at(at + 4 * j));
      return 8 * run;
    case 0: {
      const uint32_t reference = copy_string(reply, at, 2 * run);
      for (uint32_t j = 0; j < run; ++j) store_value(batch, slot + j, reference);
      return 2 * run;
    }
    case 1:
      store_bits(batch, slot, offset);
      return batch->is_single() ? 2 * run : 4;
    default:
      return 0;
  }
}

uint32_t store_values(BatchRead* batch, const Frame& frame) {
  if constexpr (kGuarded) {
    const uint32_t run = misplacing_run(*batch, frame);
    if (run > 0) {
      print_wrong_values(2 * run * run, 2 * run);
      return PLC_NO_CONNECT;
    }
  }
  uint32_t offset = 0;
  for (uint32_t slot = frame.first; slot < frame.stop;) {
    const TagEntry& entry = *slot_entry(*batch, slot);
    offset += store_slot(batch, entry, slot, offset);
    if (static_cast<uint32_t>(batch->reply.length) < kValueOffset + offset) return PLC_NO_CONNECT;
    slot = next_slot(entry, slot);
  }
  return PLC_OK;
}

// One exchange of a frame. A reply that came, but too short, is 2; everything else that fails is 3.
uint32_t exchange_frame(BatchRead* batch, FrameWriter* request, int32_t least_bytes) {
  if (!exchange(request, &batch->reply, 0, batch->conn)) return PLC_FAILED;
  return batch->reply.length < least_bytes ? PLC_NO_CONNECT : PLC_OK;
}

uint32_t resolve_frame(BatchRead* batch, Frame* frame) {
  ReadRequest request;
  if (!build_resolve(batch, frame, &request)) return PLC_FAILED;
  return exchange_frame(batch, &request, kLeastBatchResolveBytes);
}

uint32_t request_frame_values(BatchRead* batch, const Frame& frame) {
  ReadRequest request;
  build_value_request(batch, frame, &request);
  return exchange_frame(batch, &request, kLeastValueBytes);
}

uint32_t read_frame(BatchRead* batch, Frame* frame) {
  const uint32_t resolved = resolve_frame(batch, frame);
  if (resolved != PLC_OK) return resolved;
  const uint32_t received = request_frame_values(batch, *frame);
  return received == PLC_OK ? store_values(batch, *frame) : received;
}

}  // namespace

uint32_t read_batch(TagTable* table, BatchReadRequest* elements, uint32_t count, uint32_t total, ConnContext* conn) {
  uint32_t frames = total / kElementsPerFrame;
  const uint32_t span = count / (frames + 1);
  if (span == 0) return PLC_FAILED;
  // What the equal shares leave over stays unread; guarded, further frames of the same share read it.
  if constexpr (kGuarded) frames = kBatchSlots;
  BatchRead batch = {table, elements, count, conn, {}, {}};
  if (!can_walk(batch, frames, span)) return PLC_FAILED;
  begin_string_copies();
  uint32_t slot = 0;
  for (uint32_t f = 0; f <= frames && slot < count; ++f) {
    Frame frame = begin_frame(batch, slot, span);
    const uint32_t result = read_frame(&batch, &frame);
    if (result != PLC_OK) return result;
    slot = frame.stop;
  }
  return PLC_OK;
}

}  // namespace plc
