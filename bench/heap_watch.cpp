// The heap watch of heap_watch.h.
#include "bench/heap_watch.h"

#include <malloc.h>

#include <algorithm>

namespace {

size_t held = 0;
size_t peak = 0;

void* take(void* block) {
  held += malloc_usable_size(block);
  peak = std::max(peak, held);
  return block;
}

void give_back(void* block) { held -= malloc_usable_size(block); }

}  // namespace

namespace bench {

size_t heap_bytes() { return held; }

size_t peak_heap_bytes() { return peak; }

void reset_heap_peak() { peak = held; }

}  // namespace bench

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);

void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);
void __wrap_free(void* block);

void* __wrap_malloc(size_t size) { return take(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) { return take(__real_calloc(count, size)); }

void* __wrap_realloc(void* block, size_t size) {
  give_back(block);
  return take(__real_realloc(block, size));
}

void __wrap_free(void* block) {
  give_back(block);
  __real_free(block);
}

}  // extern "C"
