// Figures and words that every reader of the record needs alike.
#include "tools/plc_host/survey/survey_record.h"

#include <algorithm>

namespace plc_host::survey {
namespace {

constexpr char kContractRisk[] =
    "The contract build may take a late reply for the reply to the next request. A read then shows, and a write "
    "reaches, another variable, with result 0. Set delay_ms above the answer times, and read back what you write.";

}  // namespace

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

bool is_usable(Verdict::Usable usable) {
  return usable != Verdict::Usable::kNotUsable && usable != Verdict::Usable::kUnknown;
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

bool takes_contract_build(const SurveyRecord& record) {
  return record.verdict.usable != Verdict::Usable::kYes && record.verdict.usable != Verdict::Usable::kUnknown;
}

std::string contract_warning(const SurveyRecord& record) {
  if (!takes_contract_build(record)) return {};
  if (record.verdict.usable == Verdict::Usable::kNotUsable) return kContractRisk;
  return std::string("Hosts take the contract build here, unless a guarded one that is built so is named. ") +
         kContractRisk;
}

}  // namespace plc_host::survey
