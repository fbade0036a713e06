// The reply pair of a single read: any variable, offset and count, any two replies.
#include "driver_under_fuzz.h"
#include "memory_transport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::start_driver();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  fuzz::feed_replies(&input);
  fuzz::connect_driver();
  const uint32_t id = input.below(fuzz::tag_count());
  RegRequest request = {0, 0, input.byte(), id << 16 | input.word()};
  if (request.reg_type > 3) request.reg_type = 0;
  const uint32_t count = input.byte() == 0xFF ? input.double_word() : input.below(600);
  uint8_t* data = fuzz::host_buffer(fuzz::read_buffer_bytes(*fuzz::tag_at(id), count));
  RegValue value = {count, data};
  fuzz::check_result(ev_plc_read(&request, &value, fuzz::context()));
  fuzz::feed_replies(nullptr);
  return 0;
}
