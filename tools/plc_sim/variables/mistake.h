// What somebody wrote that cannot be done, with the reason.
#pragma once

#include <stdexcept>
#include <string>

#include "base/shown_text.h"

namespace plc_sim {

// Shown already where it is thrown: the text of an exception ends at its first zero byte.
class Mistake : public std::invalid_argument {
 public:
  explicit Mistake(const std::string& text) : std::invalid_argument(plc_base::shown_line(text)) {}
};

}  // namespace plc_sim
