// The heap of events, and sums.
#include "tests/tools/plc_gateway/simulation/world/world.h"

#include <algorithm>
#include <utility>

namespace plc_gateway::simulation {

void Events::at(Ms when, Act act) {
  heap_.push_back({when, asked_++, std::move(act)});
  std::push_heap(heap_.begin(), heap_.end(), later);
}

std::optional<Ms> Events::next() const {
  if (heap_.empty()) return std::nullopt;
  return heap_.front().when;
}

void Events::run_first() {
  std::pop_heap(heap_.begin(), heap_.end(), later);
  const Act act = std::move(heap_.back().act);
  heap_.pop_back();
  ++run_;
  act();
}

void Totals::add(const Totals& other) {
  lives += other.lives;
  simulated_ms += other.simulated_ms;
  events += other.events;
  steps += other.steps;
  kills += other.kills;
  power_cuts += other.power_cuts;
  broker_losses += other.broker_losses;
  controller_losses += other.controller_losses;
  readings += other.readings;
  rows += other.rows;
  values += other.values;
  accepted += other.accepted;
  historical += other.historical;
  duplicates += other.duplicates;
  dropped += other.dropped;
  died_in_memory += other.died_in_memory;
  commands += other.commands;
  writes += other.writes;
  births += other.births;
}

}  // namespace plc_gateway::simulation
