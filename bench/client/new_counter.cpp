// The counter of new_counter.h.
#include "bench/client/new_counter.h"

#include <cstdlib>
#include <new>

namespace {

uint64_t count = 0;

}  // namespace

namespace bench {

uint64_t allocations() { return count; }

}  // namespace bench

void* operator new(std::size_t size) {
  ++count;
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void operator delete(void* block) noexcept { std::free(block); }

void operator delete(void* block, std::size_t) noexcept { std::free(block); }
