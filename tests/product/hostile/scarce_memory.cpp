// A program that gets no memory once: the request whose number is PLC_FAIL_AT, counted from 1. PLC_MEMORY_LOG is a file
// that then holds "failed", and without a failure the number of all requests.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

void log_text(const char* text) {
  const char* path = std::getenv("PLC_MEMORY_LOG");
  if (path == nullptr) return;
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (file < 0) return;
  if (write(file, text, std::strlen(text)) < 0) std::perror(path);
  close(file);
}

unsigned long wanted_failure() {
  const char* text = std::getenv("PLC_FAIL_AT");
  return text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
}

struct Requests {
  std::atomic<unsigned long> count{0};
  std::atomic<bool> has_failed{false};
  ~Requests() {
    if (has_failed) return;
    char text[24];
    std::snprintf(text, sizeof text, "%lu", count.load());
    log_text(text);
  }
};

Requests requests;

// Null where it fails on purpose or memory is out.
void* taken(std::size_t bytes) {
  static const unsigned long failing = wanted_failure();
  if (++requests.count == failing) {
    requests.has_failed = true;
    log_text("failed");
    return nullptr;
  }
  return std::malloc(bytes > 0 ? bytes : 1);
}

void* taken_or_thrown(std::size_t bytes) {
  while (true) {
    if (void* memory = taken(bytes)) return memory;
    const std::new_handler handler = std::get_new_handler();
    if (handler == nullptr) throw std::bad_alloc();
    handler();
  }
}

}  // namespace

void* operator new(std::size_t bytes) { return taken_or_thrown(bytes); }
void* operator new[](std::size_t bytes) { return taken_or_thrown(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept { return taken(bytes); }
void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept { return taken(bytes); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { std::free(memory); }
