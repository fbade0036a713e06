// The replies of a batch with any array of elements.
#include "driver_under_fuzz.h"
#include "memory_transport.h"

namespace {

constexpr size_t kMostElements = 100;

// Mostly runs: the next element of the same variable. An input that is used up has no further elements, for no reply
// would be left for them.
size_t fill_elements(fuzz::Input* input, BatchReadRequest* elements) {
  const size_t most = 1 + input->below(kMostElements);
  uint32_t id = input->below(fuzz::tag_count());
  uint16_t offset = 0;
  size_t count = 0;
  do {
    const uint8_t step = input->byte();
    if (step > 0xC0) id = input->below(fuzz::tag_count());
    offset = step > 0xE0 ? input->word() : static_cast<uint16_t>(offset + (step & 1U));
    elements[count].address = id << 16 | offset;
    elements[count].count = step == 0xFF ? input->word() : static_cast<uint16_t>(1 + (step >> 2 & 3U) % 3);
    ++count;
  } while (count < most && !input->empty());
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::start_driver();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  fuzz::feed_replies(&input);
  fuzz::connect_driver();
  BatchReadRequest elements[kMostElements] = {};
  const size_t count = fill_elements(&input, elements);
  uint8_t* const batch = fuzz::host_buffer(count * sizeof(BatchReadRequest));
  memcpy(batch, elements, count * sizeof(BatchReadRequest));
  fuzz::check_result(
      ev_OMRON_plc_read(reinterpret_cast<BatchReadRequest*>(batch), static_cast<int32_t>(count), fuzz::context()));
  fuzz::feed_replies(nullptr);
  return 0;
}
