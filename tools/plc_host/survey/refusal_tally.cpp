// Knows a request again by its bytes.
#include "tools/plc_host/survey/refusal_tally.h"

#include <algorithm>

#include "wire/judgement.h"

namespace plc_host::survey {
namespace {

constexpr size_t kMostRequests = 20000;  // of a kind; hours ask for the same ones again

bool asks_for_unknown(const plc_sim::Bytes& request) {
  plc_sim::Findings ignored;
  const std::vector<wire_trace::SentName> names = wire_trace::names_of(plc_sim::parse_request(request, ignored));
  return std::any_of(names.begin(), names.end(),
                     [](const wire_trace::SentName& sent) { return sent.name == kUnknownName; });
}

}  // namespace

void RefusalTally::take(const std::string& kind, const plc_sim::Bytes& request, bool is_refused) {
  constexpr size_t kNumberBytes = 2;
  if (asks_for_unknown(request)) return;
  plc_sim::Bytes same = request;
  for (size_t i = 0; i < kNumberBytes && plc_sim::wire::kSequenceAt + i < same.size(); ++i) {
    same[plc_sim::wire::kSequenceAt + i] = 0;
  }
  std::map<plc_sim::Bytes, Counts>& requests = kinds_[kind];
  if (requests.size() >= kMostRequests && requests.count(same) == 0) return;
  Counts& counts = requests[same];
  ++(is_refused ? counts.refused : counts.answered);
}

RefusedForOnce RefusalTally::refused_for_once(const std::string& kind) const {
  RefusedForOnce sum;
  const auto requests = kinds_.find(kind);
  if (requests == kinds_.end()) return sum;
  for (const auto& [request, counts] : requests->second) {
    sum.asked += counts.refused + counts.answered;
    sum.ever += counts.refused;
    if (counts.answered > 0) sum.refused += counts.refused;
  }
  return sum;
}

}  // namespace plc_host::survey
