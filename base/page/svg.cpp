// Writes the parts of a chart.
#include "base/page/svg.h"

#include <array>
#include <cstdio>

namespace plc_base {

std::string svg_number(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", value);
  return text.data();
}

std::string svg_rectangle(const std::string& style, double x, double y, double width, double height) {
  return "<rect class=\"" + style + "\" x=\"" + svg_number(x) + "\" y=\"" + svg_number(y) + "\" width=\"" +
         svg_number(width) + "\" height=\"" + svg_number(height) + "\"/>";
}

std::string svg_label(const char* anchor, double x, double y, const std::string& text) {
  return std::string("<text text-anchor=\"") + anchor + "\" x=\"" + svg_number(x) + "\" y=\"" + svg_number(y) + "\">" +
         text + "</text>";
}

uint64_t round_number(uint64_t least) {
  for (uint64_t power = 1;; power *= 10) {
    for (const uint64_t factor : {1U, 2U, 5U}) {
      if (power * factor >= least) return power * factor;
    }
  }
}

}  // namespace plc_base
