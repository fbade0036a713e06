// Tag files as texts in memory. Linked in by wrapping fopen.
#pragma once

#include <string>

namespace fuzz {

// The text of every tag file that is opened from now on.
void set_tag_file(std::string text);

}  // namespace fuzz
