// The turns of groups and their pieces.
#include "tools/plc_gateway/poll/schedule.h"

#include <algorithm>
#include <numeric>

namespace plc_gateway {

Schedule::Schedule(const std::vector<Ms>& periods, const std::vector<Piece>& pieces,
                   std::vector<GroupCounters>& counters)
    : groups_(periods.size()), order_(periods.size()), group_of_(pieces.size()), counters_(counters) {
  counters_.resize(periods.size());
  for (size_t i = 0; i < periods.size(); ++i) groups_[i].period = std::max<Ms>(periods[i], 1);
  for (size_t i = 0; i < pieces.size(); ++i) {
    group_of_[i] = pieces[i].group;
    groups_[pieces[i].group].pieces.push_back(i);
  }
  std::iota(order_.begin(), order_.end(), size_t{0});
  std::stable_sort(order_.begin(), order_.end(),
                   [&](size_t a, size_t b) { return groups_[a].period < groups_[b].period; });
}

void Schedule::start(Ms now) {
  running_ = true;
  for (Group& group : groups_) {
    group.under_way = false;
    group.turn = now + group.period;
    group.served = now;
  }
}

void Schedule::abort(Ms now) {
  for (size_t i = 0; i < groups_.size(); ++i) {
    if (!groups_[i].under_way) continue;
    groups_[i].under_way = false;
    ++counters_[i].failed;
    counters_[i].last_ms = now - groups_[i].began;
  }
  running_ = false;
}

void Schedule::begin(Group& group, Ms now) {
  group.under_way = true;
  group.asked = 0;
  group.read = 0;
  group.began = now;
}

void Schedule::advance(Ms now) {
  if (!running_) return;
  for (size_t i = 0; i < groups_.size(); ++i) {
    Group& group = groups_[i];
    if (group.pieces.empty() || now < group.turn) continue;
    // Turns that nobody was there to take, for a step of the clock or a machine that slept, are skipped with the rest.
    const Ms missed = (now - group.turn) / group.period;
    counters_[i].skipped += static_cast<uint64_t>(missed) + (group.under_way ? 1 : 0);
    group.turn += (missed + 1) * group.period;
    if (!group.under_way) begin(group, now);
  }
}

std::optional<size_t> Schedule::next(Ms now) {
  if (!running_) return std::nullopt;
  const auto waits = [](const Group& group) { return group.under_way && group.asked < group.pieces.size(); };
  Group* chosen = nullptr;
  for (const size_t i : order_) {
    Group& group = groups_[i];
    if (!waits(group)) continue;
    const bool starved = now - std::max(group.served, group.began) >= group.period;
    if (chosen == nullptr || starved) chosen = &group;  // of those that starve the slowest: it will not again for long
  }
  if (chosen == nullptr) return std::nullopt;
  chosen->served = now;
  return chosen->pieces[chosen->asked++];
}

bool Schedule::done(size_t piece, Ms now) {
  const size_t index = group_of_[piece];
  Group& group = groups_[index];
  if (!group.under_way || ++group.read < group.pieces.size()) return false;
  group.under_way = false;
  GroupCounters& counters = counters_[index];
  ++counters.polls;
  counters.last_ms = now - group.began;
  counters.longest_ms = std::max(counters.longest_ms, counters.last_ms);
  return true;
}

std::optional<Ms> Schedule::next_turn() const {
  std::optional<Ms> soonest;
  if (!running_) return soonest;
  for (const Group& group : groups_) {
    if (!group.pieces.empty() && (!soonest || group.turn < *soonest)) soonest = group.turn;
  }
  return soonest;
}

}  // namespace plc_gateway
