// The program's operator new, which the C++ library uses as well.
#include "tests/client/controller/counted_new.h"

#include <cstdlib>
#include <new>

namespace {

thread_local size_t allocations = 0;

void* allocate(size_t bytes) {
  ++allocations;
  void* memory = std::malloc(bytes > 0 ? bytes : 1);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

namespace plc_client_test {

size_t allocations_of_this_thread() { return allocations; }

}  // namespace plc_client_test

void* operator new(size_t bytes) { return allocate(bytes); }
void* operator new[](size_t bytes) { return allocate(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
