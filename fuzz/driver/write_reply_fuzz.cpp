// The replies of every write function: any variable, offset, count and data, any replies.
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
  RegRequest request = {0, 0, 0, id << 16 | input.word()};
  const uint32_t count = input.byte() == 0xFF ? input.double_word() : input.below(600);
  const size_t data_bytes = fuzz::write_buffer_bytes(*fuzz::tag_at(id), count);
  uint8_t* data = fuzz::host_buffer(data_bytes);
  data[0] = input.byte();
  RegValue value = {count, data};
  fuzz::check_result(ev_plc_write(&request, &value, fuzz::context()));
  fuzz::feed_replies(nullptr);
  return 0;
}
