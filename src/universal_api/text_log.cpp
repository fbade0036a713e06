// Appends formatted texts to a log file, one open and one close per text.

// A log beyond 2 GB stays writable on 32-bit builds.
#define _FILE_OFFSET_BITS 64

#include <cstdarg>
#include <cstdio>

#include "universal_api.h"

namespace {

constexpr size_t kTextBytes = 256;

}  // namespace

void ev_log(const char* path, const char* format, ...) {
  std::FILE* const log = std::fopen(path, "ae");
  if (log == nullptr) return;
  // What does not fit is cut: 255 bytes and the terminator.
  char text[kTextBytes] = {};
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  std::fputs(text, log);
  std::fclose(log);
}
