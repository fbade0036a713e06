// Variables that somebody may have meant whose name a tag file does not have.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/tags/tag_list.h"

namespace plc_client::core {

// Those near to the name, its subscripts left away; where there is none, some of the members of a structure or array of
// structures that is called so.
std::vector<std::string> meant_names(std::string_view name, const std::vector<std::string>& names);

// A text that means a variable of the list where this one is only written in another way: Grid[1][2], Table(1),
// Table[0-4], a subscript behind what is no array, blanks or a colon at its end. Nothing where it is none of them.
std::optional<std::string> respelled(const TagList& list, std::string_view text);

}  // namespace plc_client::core
