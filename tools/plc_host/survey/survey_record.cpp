// Figures and words that every reader of the record needs alike.
#include "tools/plc_host/survey/survey_record.h"

#include <algorithm>

namespace plc_host::survey {

Spread spread_of(std::vector<double> values) {
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  // The smallest value that so many of a hundred do not exceed.
  const auto at = [&values](size_t hundredths) {
    return values[std::min(values.size() - 1, (values.size() * hundredths + 99) / 100 - 1)];
  };
  return {at(50), at(99), values.back()};
}

const char* reaction_words(Reaction reaction) {
  switch (reaction) {
    case Reaction::kAnswered:
      return "accepted and answered";
    case Reaction::kRefused:
      return "refused";
    case Reaction::kClosed:
      return "accepted, then closed";
    case Reaction::kSilent:
      return "accepted, never answered";
    case Reaction::kNotTried:
      break;
  }
  return "not tried";
}

}  // namespace plc_host::survey
