// Which variables a command is about: names, patterns of names, and files that hold them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/plan/tag_transfer.h"
#include "client/tags/tag_list.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

// The lines of a file but for empty ones, or of standard input for "-". Blanks around a name are none of it; a line of
// NAME=VALUE stays as it is. Throws HostError for what cannot be read, is no text of UTF-8, has no line, or has one
// without a value where there is to be one.
std::vector<std::string> names_in(const std::string& file, bool are_assignments);

// The name as a line of such a file, by which find_variable finds it again: what is hidden, and the blanks at its ends,
// are written out, as in Main\t.
std::string listed_name(std::string_view name);

// Whether the text means all names that fit it: it has a * or ?, or a bracket with something else than subscripts in
// it.
bool is_pattern(std::string_view text);

// Positions of the variables whose names fit, those of programs by SCOPE/NAME.
std::vector<size_t> positions_fitting(const TagList& tags, std::string_view pattern);

// Why no name fits: "machine.csv has no variable that fits this pattern; did you mean 'Motor.*'?"
std::string why_none_fits(const TagList& tags, const std::string& file, const std::string& pattern);

// Appends the variables that fit the text, once each, or one that says that none does. False, without doing anything,
// when the text is no pattern or the name of a variable.
bool add_fitting(const TagList& tags, const std::string& file, const std::string& text, std::vector<TagResult>& named);

}  // namespace plc_host
