// The replies of a batch with any array of elements.
#include <vector>

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
  const size_t count = 1 + input.below(100);
  std::unique_ptr<BatchReadRequest[]> elements(new BatchReadRequest[count]());
  uint32_t id = input.below(fuzz::tag_count());
  uint16_t offset = 0;
  for (size_t i = 0; i < count; ++i) {
    // Mostly runs: the next element of the same variable.
    const uint8_t step = input.byte();
    if (step > 0xC0) id = input.below(fuzz::tag_count());
    offset = step > 0xE0 ? input.word() : static_cast<uint16_t>(offset + (step & 1U));
    elements[i].address = id << 16 | offset;
    elements[i].count = step == 0xFF ? input.word() : static_cast<uint16_t>(1 + (step >> 2 & 3U) % 3);
  }
  fuzz::check_result(ev_OMRON_plc_read(elements.get(), static_cast<int32_t>(count), fuzz::context()));
  fuzz::feed_replies(nullptr);
  return 0;
}
