// Handles -> values: the request that asks for the values behind the references of a resolve reply.
#pragma once

#include <cstdint>

#include "plc_driver/protocol/frames/frame_writer.h"
#include "plc_driver/protocol/frames/reply_view.h"

namespace plc {

// Begins a value request for count (low 16 bits) references.
void begin_value_request(FrameWriter* request, uint32_t count);

// The five bytes that a resolve reply returns for a name and that later requests carry back, never interpreted.
struct NameHandle {
  uint8_t lead;
  uint8_t reference[4];
};
static_assert(sizeof(NameHandle) == 5, "the bytes of a reply as they stand");

// The handle of the name at the cursor.
inline NameHandle handle_at(const NameCursor& name) {
  NameHandle handle;
  memcpy(&handle, name.record() + kHandleOffset, sizeof handle);
  return handle;
}

// Appends one reference.
inline void append_reference(FrameWriter* request, const NameHandle& handle, uint8_t size_code) {
  uint8_t* at = request->reserve(kReferenceBytes);
  if (at == nullptr) return;
  at[0] = 0;
  at[1] = handle.lead;
  at[2] = 0;
  at[3] = size_code;
  memcpy(at + 4, handle.reference, sizeof handle.reference);
}

// Each returns a bit's number within the word that is read.

// A bit inside a word: the reference stands as it is, the reply tells the bit.
uint8_t locate_word_bit(const NameCursor& name);

// A bit with an address of its own: its reference holds the bit, which is taken out of it.
uint8_t take_address_bit(NameHandle* handle);

}  // namespace plc
