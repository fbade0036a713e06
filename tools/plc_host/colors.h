// Colour where somebody looks at it.
#pragma once

#include <string>

namespace plc_host {

// A terminal that only types on: no colours, and no line is drawn again.
bool is_dumb_terminal();

enum class Tint { kNone, kBad, kChanged };

// choice is auto, always or never; auto: for a terminal, unless NO_COLOR or TERM=dumb says otherwise. To be called
// while standard output is still the process's own.
void choose_colors(const std::string& choice);

// The text as it goes to standard output, or to standard error.
std::string tinted(const std::string& text, Tint tint);
std::string tinted_message(const std::string& text, Tint tint);

}  // namespace plc_host
