// The lines of a tag file's text that count, each split at its commas.
#pragma once

#include <cstddef>
#include <cstdint>

#include "plc_driver/tags/tag_line.h"

namespace plc {

// Hands out pieces of at most 255 bytes that end in a line feed and hold no zero byte.
struct LineReader {
  const char* at;
  const char* end;
  uint32_t number = 0;  // of the last line that ended, from 1

  LineReader(const char* text, size_t length) : at(text), end(text + length) {}

  // The next line; false at the text's end.
  bool next(TagLine* line);

 private:
  bool read_piece(const char* limit, TagLine* line);
};

}  // namespace plc
