// Tag files as texts in memory. Linked in by wrapping open, read, and fstat, under both of its names.
#pragma once

#include <string>

namespace fuzz {

// The text of every tag file that is opened from now on.
void set_tag_file(std::string text);

// Whether the descriptor is that of a tag file.
bool is_memory_file(int descriptor);

}  // namespace fuzz
