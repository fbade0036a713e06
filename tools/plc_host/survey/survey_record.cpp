// Figures and words that every reader of the record needs alike.
#include "tools/plc_host/survey/survey_record.h"

#include <algorithm>

#include "base/text.h"

namespace plc_host::survey {
namespace {

constexpr char kContractRisk[] =
    "The contract build may take a late reply for the reply to the next request. A read then shows, and a write "
    "reaches, another variable, with result 0. Set delay_ms above the answer times, and read back what you write.";
constexpr char kKeptBuild[] =
    ". Hosts keep the guarded build, which fails where the contract build would show wrong values with result 0.";

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

bool is_read(const VariableFinding& finding) {
  return finding.state == VariableFinding::State::kGood && !finding.has_no_value;
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

std::optional<size_t> usual_piece_bytes(const SurveyRecord& record) {
  constexpr uint64_t kChance = 1;
  std::map<size_t, uint64_t> sizes;  // of pieces that another one follows
  for (const Split& split : record.splits) {
    for (const auto& [pieces, count] : split.pieces) {
      for (size_t i = 0; i + 1 < pieces.size(); ++i) sizes[pieces[i]] += count;
    }
  }
  const auto is_rarer = [](const auto& one, const auto& other) { return one.second < other.second; };
  const auto usual = std::max_element(sizes.begin(), sizes.end(), is_rarer);
  if (usual == sizes.end() || usual->second <= kChance) return std::nullopt;
  return usual->first;
}

std::string contract_problem(const SurveyRecord& record) {
  if (record.verdict.usable == Verdict::Usable::kYes || record.verdict.usable == Verdict::Usable::kUnknown) return {};
  // Hosts ask the contract build for no more than a segment of Ethernet takes, with or without options of TCP.
  constexpr size_t kWholeSegment = 1400;
  if (const auto piece = usual_piece_bytes(record); piece && *piece < kWholeSegment) {
    return "replies come in pieces of " + plc_base::plural(*piece, "byte");
  }
  const Variables& variables = record.variables;
  const std::string& build = variables.compared_with;
  if (variables.misread == 0 || build.substr(build.rfind(' ') + 1) != "contract") return {};
  return "the contract build gave other values than the controller for " + std::to_string(variables.misread) + " of " +
         plc_base::plural(variables.compared, "variable");
}

bool takes_contract_build(const SurveyRecord& record) {
  const Verdict::Usable usable = record.verdict.usable;
  return usable != Verdict::Usable::kYes && usable != Verdict::Usable::kUnknown && contract_problem(record).empty();
}

std::string contract_warning(const SurveyRecord& record) {
  const std::string problem = contract_problem(record);
  if (!problem.empty()) return kNeitherBuild + problem + kKeptBuild;
  if (!takes_contract_build(record)) return {};
  if (record.verdict.usable == Verdict::Usable::kNotUsable) return kContractRisk;
  return std::string("Hosts take the contract build here, unless a guarded one that is built so is named. ") +
         kContractRisk;
}

}  // namespace plc_host::survey
