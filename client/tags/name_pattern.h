// Patterns of names: * for any characters, ? for one, [abc], [a-c] and [!abc] for one of these or none of these.
#pragma once

#include <string_view>

namespace plc_client::core {

// Whether the whole name fits. A character is one of UTF-8, whatever the program's language is set to; a byte of no
// UTF-8 counts as one. A bracket that nothing closes stands for itself, and so does a backslash. However many stars
// there are, the time grows with the lengths of the two alone.
bool fits_pattern(std::string_view pattern, std::string_view name);

}  // namespace plc_client::core
