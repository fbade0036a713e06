// What the lines that the driver prints mean, and what to try.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "client/values/reading.h"

namespace plc_client::core {

struct LineMeaning {
  Quality quality;  // of the reading whose call printed it
  std::string meaning;
  std::string advice;
  size_t rank;  // the smaller, the nearer to the cause, where one call prints several lines
};

// Nothing for a line that tells of no failure.
std::optional<LineMeaning> meaning_of_line(const std::string& line);

}  // namespace plc_client::core
