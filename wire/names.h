// Names of variables: UTF-8 as people write them, UTF-16 as they travel, and the subscripts at their end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plc_sim {

// A name split into what stands before its last subscripts and those subscripts; none when it ends otherwise.
struct ElementName {
  std::string base;
  std::vector<int64_t> subscripts;
};

// Empty when the text is not well-formed UTF-8.
std::optional<std::u16string> utf16_from_utf8(std::string_view text);

// A lone surrogate becomes its own three-byte sequence, so that no unit is lost in a message.
std::string utf8_from_utf16(std::u16string_view units);

// "Grid[#1,#2]" gives Grid and 1, 2; "Line[#2].Speed" has no subscripts at its end and stays whole.
ElementName split_element_name(std::string_view wire_name);

// Puts '#' before each subscript that has none: what people type becomes what travels.
std::string mark_subscripts(std::string_view name);

// Takes the '#' of subscripts away again for people.
std::string strip_subscript_marks(std::string_view name);

// A name from outside as it stands in a message or at the beginning of a line: its hidden characters visible, its
// colons where they could end the word of a speaker (":\x20") as \x3a, and no more of it than a tag file can declare.
std::string shown_name(std::string_view name);

// "[#1,#2]"; empty when there are no subscripts.
std::string subscript_text(const std::vector<int64_t>& subscripts);

}  // namespace plc_sim
