// Mistakes as programs get them: one line of shown text, whatever names and paths in it hold.
#pragma once

#include <string_view>

#include "base/shown_text.h"

namespace plc_client {

template <typename Mistake>
[[noreturn]] void refuse(std::string_view text) {
  throw Mistake(plc_base::shown_line(text));
}

}  // namespace plc_client
