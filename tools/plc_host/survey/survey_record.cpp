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

bool is_foreign(const HeadCounts& heads) {
  const uint64_t alike = heads.length.right + heads.complement.right + heads.request_class.right + heads.command.right;
  return heads.replies > 0 && alike == 0;
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
