// Turns, computed from the moment at which the controller was found and from the periods alone.
#include "tests/tools/plc_gateway/simulation/judge/poll_watch.h"

#include <algorithm>

namespace plc_gateway::simulation {

PollWatch::PollWatch(const SimClock& clock, const Configuration& configuration, Ms longest_read)
    : clock_(clock), configuration_(configuration), groups_(configuration.periods.size()), longest_read_(longest_read) {
  shortest_ = *std::min_element(configuration.periods.begin(), configuration.periods.end());
  for (size_t i = 0; i < groups_.size(); ++i) groups_[i].period = configuration.periods[i];
  for (const Piece& piece : configuration.pieces) ++groups_[piece.group].pieces;
  is_strict_ = static_cast<Ms>(configuration.pieces.size() + 1) * longest_read < shortest_;
}

void PollWatch::disturb() { disturbed_until_ = clock_.steady_ms() + shortest_; }

void PollWatch::take_turns() {
  const Ms now = clock_.steady_ms();
  for (Group& group : groups_) {
    if (group.pieces == 0) continue;
    for (; group.turn <= now; group.turn += group.period) {
      if (group.under_way && group.asked == 0 && is_calm()) {
        throw Violation("a group was not read between one turn and the next");
      }
      if (group.under_way) continue;
      group.under_way = true;
      group.asked = group.read = 0;
      group.waited_for.assign(groups_.size(), 0);
      const bool waits = is_reading_ && read_began_ < group.turn;
      if (waits) ++group.waited_for[reading_group_];
    }
  }
}

void PollWatch::read_begins(size_t piece) {
  read_began_ = clock_.steady_ms();
  if (!is_running_) return;
  take_turns();
  const size_t index = configuration_.pieces[piece].group;
  Group& group = groups_[index];
  is_reading_ = true;
  reading_group_ = index;
  if (!group.under_way) throw Violation("a group is read before its turn");
  ++group.asked;
  for (Group& other : groups_) {
    if (!other.under_way || other.asked != 0 || other.period >= group.period) continue;
    if (++other.waited_for[index] > 1 && is_calm()) {
      throw Violation("a fast group waits for more than one piece of a slow one");
    }
  }
}

void PollWatch::read_ends(size_t piece) {
  if (clock_.steady_ms() - read_began_ > longest_read_) disturb();
  is_reading_ = false;
  if (!is_running_) return;
  Group& group = groups_[configuration_.pieces[piece].group];
  if (++group.read == group.pieces) group.under_way = false;
}

void PollWatch::set_alive(bool alive) {
  if (alive && !is_running_) {
    for (Group& group : groups_) {
      group.turn = clock_.steady_ms() + group.period;
      group.under_way = false;
    }
  }
  is_running_ = alive;
}

void PollWatch::check_skipped(const std::vector<GroupCounters>& groups) {
  for (size_t i = 0; i < groups_.size(); ++i) {
    if (groups[i].skipped != groups_[i].skipped && is_calm()) throw Violation("a poll was skipped without need");
    groups_[i].skipped = groups[i].skipped;
  }
}

}  // namespace plc_gateway::simulation
