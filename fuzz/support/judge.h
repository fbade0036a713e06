// What the targets demand: a line on standard error says what did not hold, and the process ends.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "base/shown_text.h"
#include "base/utf8.h"

namespace fuzz {

inline void demand(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// Well-formed, and nothing in it that a terminal obeys or hides; line feeds may stand in it.
inline bool is_shown(std::string_view text) {
  while (const auto first = plc_base::first_code_point(text)) {
    if (plc_base::is_hidden(first->value) && first->value != '\n') return false;
    text.remove_prefix(first->bytes);
  }
  return text.empty();
}

}  // namespace fuzz
