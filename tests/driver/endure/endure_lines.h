// The lines that the driver prints, counted by what they say: which of its reasons a run has met.
#pragma once

#include <cstddef>

namespace plc_endure {

// Numbers are shown as #.
struct LineCount {
  static constexpr size_t kTextBytes = 72;
  char text[kTextBytes];
  unsigned long count;
};
constexpr size_t kLineKinds = 48;

// From here on what goes to standard output is counted and shown nowhere. Further kinds of lines than there is room for
// are counted as the last one.
bool count_lines(LineCount (*counts)[kLineKinds]);

}  // namespace plc_endure
