// Copies of the strings of a batch. One mapping below 4 GiB, made at the first string and kept until it is given back
// or the library goes.
#include "plc_driver/protocol/reads/string_copies.h"

#include <sys/mman.h>

namespace plc {
namespace {

// A batch has at most 100 slots and frames of 35 elements for each, and merging adds at most one element a slot: two
// bytes for each of 3499 + 100 elements, and a terminator for each slot.
constexpr uint32_t kCopyBytes = 8192;
static_assert(2 * (3499 + 100) + 100 <= kCopyBytes);

uint8_t* copies;
uint32_t used;

bool fits_32_bits(const void* mapping) { return reinterpret_cast<uintptr_t>(mapping) <= UINT32_MAX - kCopyBytes; }

// A mapping at or near this address, or null when it would lie above 4 GiB.
uint8_t* map_near(uintptr_t address) {
#ifdef MAP_32BIT
  constexpr int kLowFlag = MAP_32BIT;
#else
  constexpr int kLowFlag = 0;
#endif
  void* mapping = mmap(reinterpret_cast<void*>(address), kCopyBytes, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | kLowFlag, -1, 0);
  if (mapping == MAP_FAILED) return nullptr;
  if (fits_32_bits(mapping)) return static_cast<uint8_t*>(mapping);
  munmap(mapping, kCopyBytes);
  return nullptr;
}

// Tries addresses across the lower 4 GiB; the kernel takes the next free one where it does not go elsewhere.
uint8_t* map_copies() {
  constexpr uintptr_t kFirstAddress = 0x10000000;
  constexpr uintptr_t kStep = 0x10000000;
  constexpr int kTries = 15;
  uint8_t* mapping = nullptr;
  for (int i = 0; i < kTries && mapping == nullptr; ++i) {
    mapping = map_near(kFirstAddress + kStep * static_cast<uintptr_t>(i));
  }
  return mapping;
}

}  // namespace

__attribute__((destructor)) void free_string_copies() {
  if (copies != nullptr) munmap(copies, kCopyBytes);
  copies = nullptr;
  used = 0;
}

void begin_string_copies() { used = 0; }

uint32_t copy_string(const ReplyBuffer& reply, uint32_t offset, uint32_t length) {
  if (copies == nullptr) copies = map_copies();
  if (copies == nullptr || length >= kCopyBytes - used) return 0;
  uint8_t* copy = copies + used;
  for (uint32_t i = 0; i < length; ++i) copy[i] = reply.at(offset + i);
  copy[length] = 0;
  used += length + 1;
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(copy));
}

}  // namespace plc
