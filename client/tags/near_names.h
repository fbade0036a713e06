// Names that somebody may have meant who wrote another one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace plc_client::core {

// The candidates that differ from wanted in letter case or in a few characters, the nearest first, each once, at most
// five.
std::vector<std::string> near_names(std::string_view wanted, const std::vector<std::string>& candidates);

// "Speed", "Speed or Spend", "Speed, Spend or Spell".
std::string joined_with_or(const std::vector<std::string>& names);

}  // namespace plc_client::core
