// Columns of text in a terminal.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace plc_client::core {

// Columns that text takes in a terminal: one per character, two for the wide ones of East Asian scripts.
size_t display_width(std::string_view text);

// The beginning of text that takes at most columns; cut text ends in "…".
std::string fit_columns(std::string_view text, size_t columns);

// text, filled up with spaces to columns.
std::string pad_columns(std::string_view text, size_t columns);

}  // namespace plc_client::core
