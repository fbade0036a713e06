// The replies to the two directory requests.
#include <cstdlib>
#include <cstring>

#include "driver_under_fuzz.h"
#include "memory_transport.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/link/directory.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::start_driver();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  fuzz::feed_replies(&input);
  fuzz::connect_driver();
  const uint32_t result = KV8000_get_localMSG(fuzz::context());
  if (result != PLC_OK && result != PLC_FAILED) abort();
  if (plc::localNum > plc::directory_capacity) abort();
  for (uint32_t i = 0; i < plc::localNum; ++i) {
    if (memchr(plc::LocalInfo[i].name, 0, sizeof plc::LocalInfo[i].name) == nullptr) abort();
  }
  fuzz::feed_replies(nullptr);
  return 0;
}
