// One line of a tag file -> one record.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Parses a NUL-terminated line (with its line end) into entry: clears the name, then writes only the fields that the
// line sets. Returns 0 whatever the line holds. docs/tag_files.md describes the columns.
PLC_PRIVATE_API int pase_str(const char* line, TagEntry* entry);

// 1 if the name holds no '.', 2 if it holds a '.' but no ']', 3 if both.
PLC_PRIVATE_API int varParse(const char* name);

// Moves text from pos to its end (terminator included) one place to the right and puts *ch at pos. The caller's array
// has room for one more byte.
PLC_PRIVATE_API void insert(char* text, const char* ch, int pos);
}

namespace plc {

constexpr uint32_t kLineCommaLimit = 255;  // a line of a file is shorter

// A line, and where its commas are. Of a longer text than a file's line only the first commas are kept.
struct TagLine {
  const char* text;
  uint32_t length;
  uint32_t comma_count;
  uint32_t commas[kLineCommaLimit];
};

// pase_str for a split line and a record whose name is all zero.
void parse_tag_line(const TagLine& line, TagEntry* entry);

// The id that decides whether a line is a plain or an indexed record: the fifth field from the line's end. Returns
// false for a line with fewer than five commas, which is a plain record.
bool classify_tag_line(const TagLine& line, uint32_t* id);

}  // namespace plc
