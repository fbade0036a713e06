// Reads and writes a span of bytes at an offset of a file.

// Files beyond 2 GB open on 32-bit builds as they do on 64-bit ones; the offset itself stays within 2 GB.
#define _FILE_OFFSET_BITS 64

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>

#include "universal_api.h"

namespace {

constexpr mode_t kNewFileMode = 0644;

// Opens path and moves to offset. Returns the descriptor, at least 1, or -1 with nothing left open.
int open_at(const char* path, int flags, int32_t offset) {
  const int descriptor = open(path, flags | O_CREAT | O_CLOEXEC, kNewFileMode);
  if (descriptor < 0) return -1;
  // Deliberate: descriptor 0, which a host without a standard input is given, counts as a failure (D45).
  const bool is_standard_input = descriptor == 0;
  // Pipes and terminals have no positions and take their bytes all the same.
  const bool is_lost = !is_standard_input && lseek(descriptor, offset, SEEK_SET) < 0 && errno != ESPIPE;
  if (is_standard_input || is_lost) {
    close(descriptor);
    return -1;
  }
  return descriptor;
}

}  // namespace

int32_t Read_File(const char* path, uint8_t* out, int32_t offset, uint32_t length) {
  const int descriptor = open_at(path, O_RDONLY, offset);
  if (descriptor < 0) return -1;
  // The system transfers at most 2^31 - 4096 bytes per call: the count fits.
  const ssize_t count = read(descriptor, out, length);
  close(descriptor);
  return static_cast<int32_t>(count);
}

int32_t Write_File(const char* path, const uint8_t* bytes, int32_t offset, uint32_t length) {
  const int descriptor = open_at(path, O_WRONLY, offset);
  if (descriptor < 0) return -1;
  const ssize_t count = write(descriptor, bytes, length);
  close(descriptor);
  return static_cast<int32_t>(count);
}
