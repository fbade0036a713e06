// Any sequence of host calls, replies, closes, resets and changes of the tag file.
#include <memory>

#include "driver_under_fuzz.h"
#include "memory_files.h"
#include "memory_transport.h"
#include "plc_driver/driver_state.h"

namespace {

constexpr size_t kBufferBytes = 4096;

void transfer(fuzz::Input* input, bool write) {
  RegRequest request = {static_cast<uint16_t>(input->byte() % 2), 0, input->byte(), input->double_word()};
  const uint32_t count = input->byte();
  std::unique_ptr<uint8_t[]> data(new uint8_t[kBufferBytes]());
  RegValue value = {count, data.get()};
  fuzz::check_result(write ? ev_plc_write(&request, &value, fuzz::context())
                           : ev_plc_read(&request, &value, fuzz::context()));
}

void batch(fuzz::Input* input) {
  const size_t count = 1 + input->below(100);
  std::unique_ptr<BatchReadRequest[]> elements(new BatchReadRequest[count]());
  for (size_t i = 0; i < count; ++i) {
    elements[i].reg_type = input->byte();
    elements[i].address = input->double_word();
    elements[i].count = input->byte() % 4;
  }
  fuzz::check_result(ev_OMRON_plc_read(elements.get(), static_cast<int32_t>(count), fuzz::context()));
}

void change_tag_file(fuzz::Input* input) {
  static const char* const kLines[] = {
      "V,INT,,,,,,0,1,0,0,\n",     "T,DINT,[0..9],,,,,262144,1,0,0,\n",     "U,REAL,[0..9],,,,,262145,0,0,1,MAIN\n",
      "S,STRING,,9,,,,1,1,0,0,\n", "B,BOOL,[0..3_0..3],,,,,2,1,0,0,,EM0\n", "X,LINT,[0..5],,,,,270336,1,0,0,\n"};
  std::string text;
  for (uint8_t lines = input->byte() % 16; lines > 0; --lines) text += kLines[input->below(6)];
  fuzz::set_tag_file(text);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::start_driver();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  fuzz::feed_replies(&input);
  fuzz::restart_driver();
  while (!input.empty()) {
    switch (input.byte() % 6) {
      case 0:
        transfer(&input, false);
        break;
      case 1:
        transfer(&input, true);
        break;
      case 2:
        batch(&input);
        break;
      case 3:
        change_tag_file(&input);
        break;
      case 4:
        fuzz::restart_driver();
        break;
      default:
        fuzz::context()->socket_fd = input.byte();
        fuzz::context()->recv_timeout_s = 1U + input.byte();
        break;
    }
  }
  fuzz::feed_replies(nullptr);
  return 0;
}
