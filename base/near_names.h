// Names that somebody may have meant who wrote another one.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace plc_base {

// The candidates that differ from wanted in letter case or in a few characters, the nearest first, each once, at most
// five.
std::vector<std::string> near_names(std::string_view wanted, const std::vector<std::string>& candidates);

// "did you mean Speed or Spend?"; "" where no candidate is near.
std::string did_you_mean(std::string_view wanted, const std::vector<std::string>& candidates);

// "Speed", "Speed or Spend", "Speed, Spend or Spell", each as told_name has it.
std::string joined_with_or(const std::vector<std::string>& names);

// The same of words that stand as they are.
std::string words_with_or(const std::vector<std::string>& words);

}  // namespace plc_base
