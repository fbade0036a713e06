// What a journal must still have when a process opens it: all but what only memory had.
#include <algorithm>
#include <limits>
#include <utility>

#include "tests/tools/plc_gateway/simulation/judge/ledger.h"

namespace plc_gateway::simulation {
void Ledger::name_variables() {
  aliases_.clear();
  std::map<uint64_t, bool> taken;
  const auto name = [&](const Variable& variable, uint32_t index) {
    const uint64_t alias = journal_->alias(index);
    const std::pair<std::string, DataType> named = {variable.name, variable.type};
    if (alias == 0 || !taken.emplace(alias, true).second) throw Violation("two variables have one alias");
    const auto known = alias_of_.emplace(named, alias).first;
    if (known->second != alias) throw Violation(variable.name + " has another alias than before");
    const auto other = name_of_.emplace(alias, named).first;
    if (other->second != named) throw Violation(variable.name + " has the alias of another variable");
    aliases_.push_back(alias);
  };
  uint32_t index = 0;
  for (const Variable& variable : configuration_->variables) name(variable, index++);
  for (const Variable& variable : journal_->retired()) name(variable, index++);
}

void Ledger::open(const Journal& journal, const Configuration& configuration, Readings& readings, const End& end) {
  journal_ = &journal;
  configuration_ = &configuration;
  readings_ = &readings;
  const Look look(disk_);
  name_variables();
  const JournalCounters counters = journal.counters();
  if (counters.lost_damage != 0) throw Violation("the journal was put aside as damaged, and nothing damaged it");
  // What was dropped while only memory knew of it is not counted any more after a kill.
  const bool is_exact = !end.disk_failed && !end.in_mid_step;
  if (is_exact && counters.dropped < dropped_) throw Violation("values that were dropped are not counted any more");
  const uint64_t dropped = counters.dropped > dropped_ ? counters.dropped - dropped_ : 0;
  compare(journal.read(1, kAllValues), end, is_exact ? dropped : std::numeric_limits<uint64_t>::max());
  totals_.dropped += dropped;
  dropped_ = counters.dropped;
  seen_ = journal.last_id();
  // Numbers that only memory knew are given again.
  left_.erase(std::remove_if(left_.begin(), left_.end(), [&](const Row& row) { return row.id > seen_; }), left_.end());
}

uint64_t Ledger::take_replaced(Row& known) const {
  const auto is_replaced = [&](const Cell& cell) {
    const auto& named = name_of_.at(cell.alias);
    return std::any_of(
        configuration_->variables.begin(), configuration_->variables.end(),
        [&](const Variable& variable) { return variable.name == named.first && variable.type != named.second; });
  };
  const size_t before = known.cells.size();
  known.cells.erase(std::remove_if(known.cells.begin(), known.cells.end(), is_replaced), known.cells.end());
  const uint64_t replaced = known.is_lost ? 0 : before - known.cells.size();
  known.values -= replaced;
  return replaced;
}

void Ledger::check_same(Row& known, const JournalRow& there) const {
  Row now = take(there);
  if (now.is_lost != known.is_lost) throw Violation(told(known) + " is of another kind after the restart");
  if (known.is_lost) {
    // It says of today's variables that they are unknown.
    for (Cell& cell : now.cells) {
      for (const Cell& before : known.cells)
        cell.accepted = cell.accepted || (before.alias == cell.alias && before.accepted);
    }
    known.cells = std::move(now.cells);
    return;
  }
  const bool is_same = std::equal(
      known.cells.begin(), known.cells.end(), now.cells.begin(), now.cells.end(), [](const Cell& a, const Cell& b) {
        return a.alias == b.alias && a.time == b.time && a.good == b.good && a.bits == b.bits && a.bytes == b.bytes;
      });
  if (is_same) return;
  const auto list = [&](const Row& row) {
    std::string text;
    for (const Cell& cell : row.cells) {
      text += " " + name_of_.at(cell.alias).first + (cell.good ? " " : " bad ") + std::to_string(cell.time);
    }
    return text;
  };
  throw Violation("row " + std::to_string(known.id) + " held" + list(known) + ", and holds after the restart" +
                  list(now));
}

void Ledger::compare(const std::vector<JournalRow>& there, const End& end, uint64_t newly_dropped) {
  std::deque<Row> known;
  known.swap(rows_);
  incomplete_ = 0;
  const uint64_t from_memory = end.in_memory == 0 ? std::numeric_limits<uint64_t>::max() : seen_ - end.in_memory + 1;
  uint64_t went = 0;
  const auto is_missing = [&](const Row& row) {
    if (row.is_complete || end.is_first) return;
    if (row.id >= from_memory) {
      totals_.died_in_memory += row.values;
    } else if (newly_dropped == 0) {
      throw Violation(told(row) + " is not in the journal after the restart");
    } else {
      went += row.values;
    }
  };
  const auto keep = [&](Row row) {
    if (!row.is_complete) ++incomplete_;
    rows_.push_back(std::move(row));
    complete(rows_.back());
  };
  for (const JournalRow& row : there) {
    while (!known.empty() && known.front().id < row.id) {
      went += take_replaced(known.front());
      if (known.front().is_lost || !known.front().cells.empty()) is_missing(known.front());
      left_.push_back(std::move(known.front()));
      known.pop_front();
    }
    if (!known.empty() && known.front().id == row.id) {
      went += take_replaced(known.front());
      check_same(known.front(), row);
      keep(std::move(known.front()));
      known.pop_front();
      continue;
    }
    const auto left = std::find_if(left_.begin(), left_.end(), [&](const Row& gone) { return gone.id == row.id; });
    if (left != left_.end() && (end.power_cut || end.disk_failed || end.in_mid_step)) {
      went += take_replaced(*left);
      check_same(*left, row);
      keep(std::move(*left));
      left_.erase(left);
    } else if (row.id > seen_ && end.in_mid_step) {
      keep(take(row));
    } else {
      throw Violation("row " + std::to_string(row.id) + " is in the journal after the restart, and was not before");
    }
  }
  for (Row& row : known) {
    went += take_replaced(row);
    if (row.is_lost || !row.cells.empty()) is_missing(row);
  }
  if (went > newly_dropped) {
    throw Violation(std::to_string(went) + " values are not in the journal after the restart, " +
                    std::to_string(newly_dropped) + " of them counted");
  }
}

}  // namespace plc_gateway::simulation
