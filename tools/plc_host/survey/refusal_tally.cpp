// Knows a request again by its bytes.
#include "tools/plc_host/survey/refusal_tally.h"

namespace plc_host::survey {
namespace {

constexpr size_t kMostRequests = 20000;  // of a kind; hours ask for the same ones again

}  // namespace

void RefusalTally::take(const std::string& kind, const plc_sim::Bytes& request, bool is_refused) {
  constexpr size_t kNumberBytes = 2;
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
    if (counts.answered > 0) sum.refused += counts.refused;
  }
  return sum;
}

}  // namespace plc_host::survey
