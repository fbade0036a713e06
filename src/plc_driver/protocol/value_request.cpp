// Handles -> values: the value request.
#include "plc_driver/protocol/value_request.h"

namespace plc {

void begin_value_request(FrameWriter* request, uint32_t count) {
  request->put_command(kClassData, kCommandRead);
  request->put(0);
  request->put16(count);
  request->put_zeros(3);
}

NameHandle handle_at(const NameCursor& name) {
  return {
      name.at(kHandleOffset),
      {name.at(kHandleOffset + 1), name.at(kHandleOffset + 2), name.at(kHandleOffset + 3), name.at(kHandleOffset + 4)}};
}

void append_reference(FrameWriter* request, const NameHandle& handle, uint8_t size_code) {
  uint8_t* at = request->reserve(kReferenceBytes);
  if (at == nullptr) return;
  at[0] = 0;
  at[1] = handle.lead;
  at[2] = 0;
  at[3] = size_code;
  memcpy(at + 4, handle.reference, sizeof handle.reference);
}

uint8_t locate_word_bit(const NameCursor& name) { return name.at(kBitNumberOffset) & 0x0F; }

uint8_t take_address_bit(NameHandle* handle) {
  uint8_t& last = handle->reference[3];
  const uint8_t position = last & 0x0F;
  last &= 0xF0;
  return position;
}

}  // namespace plc
