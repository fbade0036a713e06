// Parts of a chart as SVG; their colours are those that the page gives to their classes.
#pragma once

#include <cstdint>
#include <string>

namespace plc_base {

// "12.5"
std::string svg_number(double value);

std::string svg_rectangle(const std::string& style, double x, double y, double width, double height);

// `anchor` is the side of the text that stands at x: "start", "middle" or "end".
std::string svg_label(const char* anchor, double x, double y, const std::string& text);

// One, two or five times a power of ten, at least so much.
uint64_t round_number(uint64_t least);

}  // namespace plc_base
