// A program that gets no memory once: the request whose number is PLC_FAIL_AT, counted from 1. PLC_MEMORY_LOG is a file
// that then holds "failed", and without a failure the number of the first request of each place, a line each.
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

namespace {

template <typename Write>
void with_log(const Write& write) {
  const char* path = std::getenv("PLC_MEMORY_LOG");
  const int file = path != nullptr ? open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600) : -1;
  if (file < 0) return;
  write(file);
  close(file);
}

// The places that ask for memory, each told by those who called it, with the number of its first request.
class Places {
 public:
  void add(unsigned long request) {
    static thread_local bool is_looking = false;
    if (is_looking) return;
    is_looking = true;
    const size_t place = callers();
    size_t at = place % kMost;
    while (known_[at] != 0 && known_[at] != place) at = (at + 1) % kMost;
    if (known_[at] == 0 && count_ < kMost / 2) {
      known_[at] = place;
      first_[count_++] = request;
    }
    is_looking = false;
  }
  void write_to(int file) const {
    for (size_t i = 0; i < count_; ++i) dprintf(file, "%lu\n", first_[i]);
  }

 private:
  static constexpr size_t kMost = 1 << 16;

  static size_t callers() {
    constexpr int kDepth = 16;
    void* frames[kDepth];
    const int depth = backtrace(frames, kDepth);
    size_t place = 1;
    for (int i = 0; i < depth; ++i) place = place * 1099511628211U + reinterpret_cast<size_t>(frames[i]);
    return place | 1U;
  }

  size_t known_[kMost] = {};
  unsigned long first_[kMost / 2] = {};
  size_t count_ = 0;
};

unsigned long failing_request() {
  const char* text = std::getenv("PLC_FAIL_AT");
  return text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
}

struct Requests {
  std::mutex mutex;
  unsigned long count = 0;
  bool has_failed = false;
  Places places;
  ~Requests() {
    if (!has_failed) with_log([this](int file) { places.write_to(file); });
  }
};

// Made by the first request, which comes before constructors of other files have run; never removed before their end.
Requests& requests() {
  static Requests all;
  return all;
}

// Null where it fails on purpose or memory is out.
void* taken(std::size_t bytes) {
  static const unsigned long failing = failing_request();
  {
    Requests& all = requests();
    const std::lock_guard<std::mutex> lock(all.mutex);
    ++all.count;
    if (failing == 0) all.places.add(all.count);
    if (all.count == failing) {
      all.has_failed = true;
      with_log([](int file) { dprintf(file, "failed"); });
      return nullptr;
    }
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
