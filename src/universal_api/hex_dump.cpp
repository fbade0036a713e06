// Hex dumps to standard output, ten bytes a line.
#include <cstdio>

#include "universal_api.h"

namespace {

constexpr uint32_t kBytesPerLine = 10;

int32_t print_bytes(const uint8_t* bytes, int32_t length) {
  for (int32_t k = 0; k < length; ++k) {
    if (static_cast<uint32_t>(k) % kBytesPerLine == 0) std::puts("\r");
    std::printf("0x%02x ", static_cast<unsigned>(bytes[k]));
  }
  return std::puts("\r");
}

}  // namespace

int32_t dump_b(const uint8_t* bytes, int32_t length) {
  std::printf("[%s] len=%d", "dump_b", static_cast<int>(length));
  return print_bytes(bytes, length);
}

int32_t _dump(const char* title, const uint8_t* bytes, int32_t length) {
  std::printf("[%s]\tlen=%d", title, static_cast<int>(length));
  return print_bytes(bytes, length);
}
