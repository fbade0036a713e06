// Just enough UTF-8 to show foreign bytes safely and to line up columns.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace plc_host {

// Bytes of the well-formed sequence at the start of text; 0 when there is none.
size_t utf8_length(std::string_view text);

// True when text is well-formed throughout.
bool is_utf8(std::string_view text);

// Columns that text takes in a terminal: one per character, two for the wide ones of East Asian scripts.
size_t display_width(std::string_view text);

// The beginning of text that takes at most columns; cut text ends in "…".
std::string fit_columns(std::string_view text, size_t columns);

// text, filled up with spaces to columns.
std::string pad_columns(std::string_view text, size_t columns);

}  // namespace plc_host
