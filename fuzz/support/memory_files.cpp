// Tag files as texts in memory.
#include "memory_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <utility>

namespace fuzz {
namespace {

constexpr int kDescriptor = 6;  // none that the process has, nor its socket's

std::string tag_file;
size_t position = 0;

}  // namespace

void set_tag_file(std::string text) { tag_file = std::move(text); }

bool is_memory_file(int descriptor) { return descriptor == kDescriptor; }

}  // namespace fuzz

using namespace fuzz;

extern "C" {

int __real_open(const char* path, int flags, ...);
ssize_t __real_read(int descriptor, void* bytes, size_t length);
int __real___fxstat64(int record, int descriptor, struct stat64* status);
int __real_fstat(int descriptor, struct stat* status);

int __wrap_open(const char* path, int flags, ...) {
  // The fuzzing engine opens its own files through the same call.
  if (strncmp(path, "PLC", 3) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = static_cast<mode_t>(va_arg(arguments, int));
    va_end(arguments);
    return __real_open(path, flags, mode);
  }
  position = 0;
  return kDescriptor;
}

ssize_t __wrap_read(int descriptor, void* bytes, size_t length) {
  if (!is_memory_file(descriptor)) return __real_read(descriptor, bytes, length);
  const size_t count = std::min(length, tag_file.size() - position);
  memcpy(bytes, tag_file.data() + position, count);
  position += count;
  return static_cast<ssize_t>(count);
}

int __wrap___fxstat64(int record, int descriptor, struct stat64* status) {
  if (!is_memory_file(descriptor)) return __real___fxstat64(record, descriptor, status);
  *status = {};
  status->st_mode = S_IFREG;
  status->st_size = static_cast<off64_t>(tag_file.size());
  return 0;
}

int __wrap_fstat(int descriptor, struct stat* status) {
  if (!is_memory_file(descriptor)) return __real_fstat(descriptor, status);
  *status = {};
  status->st_mode = S_IFREG;
  status->st_size = static_cast<off_t>(tag_file.size());
  return 0;
}
}
