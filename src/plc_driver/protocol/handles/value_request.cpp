// Handles -> values: the value request.
#include "plc_driver/protocol/handles/value_request.h"

namespace plc {

void begin_value_request(FrameWriter* request, uint32_t count) {
  request->put_command(kClassData, kCommandRead);
  request->put(0);
  request->put16(count);
  request->put_zeros(3);
}

uint8_t locate_word_bit(const NameCursor& name) { return name.record()[kBitNumberOffset] & 0x0F; }

uint8_t take_address_bit(NameHandle* handle) {
  uint8_t& last = handle->reference[3];
  const uint8_t position = last & 0x0F;
  last &= 0xF0;
  return position;
}

}  // namespace plc
