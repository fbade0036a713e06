// Rows as they are appended, published, accepted and removed.
#include "tests/tools/plc_gateway/simulation/judge/ledger.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace plc_gateway::simulation {
namespace {

constexpr size_t kMostLeft = 2000;
constexpr size_t kMostBirths = 8;

}  // namespace

std::string Ledger::told(const Row& row) const {
  const std::string text = "row " + std::to_string(row.id) + (row.is_lost ? ", the loss of the controller" : "");
  for (const Cell& cell : row.cells) {
    if (!cell.accepted) return text + ", of " + name_of_.at(cell.alias).first + " at " + std::to_string(cell.time);
  }
  return text;
}

std::deque<Ledger::Row>::iterator Ledger::from(uint64_t id) {
  return std::lower_bound(rows_.begin(), rows_.end(), id,
                          [](const Row& row, uint64_t wanted) { return row.id < wanted; });
}

Ledger::Row* Ledger::find(uint64_t id) {
  const auto found = from(id);
  return found != rows_.end() && found->id == id ? &*found : nullptr;
}

Ledger::Row Ledger::take(const JournalRow& row) const {
  Row taken;
  taken.id = row.id;
  taken.is_lost = row.kind == JournalRow::Kind::kLost;
  taken.values = row.changes.size();
  const auto add = [&](uint64_t alias, Ms time) -> Cell& {
    Cell& cell = taken.cells.emplace_back();
    cell.alias = alias;
    cell.time = time;
    cell.type = name_of_.at(alias).second;
    return cell;
  };
  if (taken.is_lost) {
    for (const uint64_t alias : aliases_) add(alias, row.time).is_loss = true;
    return taken;
  }
  for (const Sample& sample : row.changes) {
    Cell& cell = add(journal_->alias(sample.variable), sample.time);
    cell.good = sample.good;
    cell.bits = sample.bits;
    cell.bytes = sample.bytes;
    if (sample.variable < configuration_->variables.size()) cell.jumps_back = readings_->jumps_back(sample.variable);
  }
  return taken;
}

const Ledger::Birth::Value* Ledger::born_with(const Birth& birth, const Cell& cell) {
  const auto found = birth.values.find(cell.alias);
  if (found == birth.values.end()) return nullptr;
  const Birth::Value& value = found->second;
  const bool is_same = !cell.is_loss && cell.good == value.good && cell.time == value.time &&
                       cell.jumps_back == value.jumps_back && cell.bits == value.bits && cell.bytes == value.bytes;
  return is_same ? &value : nullptr;
}

void Ledger::catch_up() {
  if (journal_->last_id() <= seen_) return;
  const Look look(disk_);
  for (const JournalRow& row : journal_->read(seen_ + 1, kAllValues)) {
    if (row.id <= seen_) throw Violation("the journal gives rows in another order than it took them");
    seen_ = row.id;
    readings_->journaled(row);
    rows_.push_back(take(row));
    ++incomplete_;
    ++totals_.rows;
    totals_.values += row.changes.size();
    for (const std::shared_ptr<Birth>& birth : births_) {
      if (!birth->is_accepted) continue;
      for (Cell& cell : rows_.back().cells) cell.accepted = cell.accepted || born_with(*birth, cell) != nullptr;
    }
    complete(rows_.back());
  }
  seen_ = std::max(seen_, journal_->last_id());
}

void Ledger::complete(Row& row) {
  if (row.is_complete) return;
  row.is_complete = (row.is_lost && row.death_accepted) ||
                    std::all_of(row.cells.begin(), row.cells.end(), [](const Cell& cell) { return cell.accepted; });
  if (row.is_complete) --incomplete_;
}

void Ledger::check_leavings() {
  const Look look(disk_);
  const uint64_t first = journal_->first_id();
  const JournalCounters counters = journal_->counters();
  const uint64_t dropped = counters.dropped - dropped_;
  dropped_ = counters.dropped;
  totals_.dropped += dropped;
  uint64_t gone = 0;
  uint64_t missing = 0;
  while (!rows_.empty() && (first == 0 || rows_.front().id < first)) {
    Row& row = rows_.front();
    gone += row.values;
    if (!row.is_complete) {
      --incomplete_;
      missing += row.values;
      if (dropped == 0) throw Violation(told(row) + " left the journal, and the broker has not accepted it");
    }
    left_.push_back(std::move(row));
    rows_.pop_front();
  }
  while (left_.size() > kMostLeft) left_.pop_front();
  if (missing > dropped || dropped > gone) {
    throw Violation(std::to_string(dropped) + " values were counted as dropped; of " + std::to_string(gone) +
                    " that left the journal " + std::to_string(missing) + " had not arrived");
  }
  if (counters.rows < incomplete_) {
    throw Violation("the journal has " + std::to_string(counters.rows) + " rows, of " + std::to_string(incomplete_) +
                    " the broker has not accepted everything");
  }
}

void Ledger::check_end() const {
  for (const Row& row : rows_) {
    if (!row.is_complete) throw Violation(told(row) + " has not arrived, and all has been well for long");
  }
  if (journal_->first_id() != 0) throw Violation("the journal is not empty, and all has been well for long");
}

// ---------------------------------------------------------------------------------------------------- published

void Ledger::begin_connection(uint64_t connection) {
  connection_ = connection;
  history_end_ = std::numeric_limits<uint64_t>::max();
  next_history_ = 0;
  next_live_ = 0;
}

void Ledger::device_birth(std::shared_ptr<Birth> birth) {
  birth->connection = connection_;
  births_.push_back(std::move(birth));
  if (births_.size() > kMostBirths) births_.pop_front();
  history_end_ = journal_->last_id();
  next_live_ = history_end_ + 1;
}

void Ledger::accept_birth(Birth& birth) {
  birth.is_accepted = true;
  for (Row& row : rows_) {
    for (Cell& cell : row.cells) cell.accepted = cell.accepted || born_with(birth, cell) != nullptr;
    complete(row);
  }
}

bool Ledger::is_handed_over(const Row& row) const {
  if (row.is_lost && row.death_handed_over == connection_) return true;
  return std::all_of(row.cells.begin(), row.cells.end(), [&](const Cell& cell) {
    return cell.handed_over == connection_ ||
           std::any_of(births_.begin(), births_.end(), [&](const std::shared_ptr<Birth>& birth) {
             return birth->connection == connection_ && born_with(*birth, cell) != nullptr;
           });
  });
}

Ledger::Place Ledger::match(const Metric& metric, bool historical) {
  uint64_t& next = historical ? next_history_ : next_live_;
  for (auto row = from(next); row != rows_.end() && !(historical && row->id > history_end_); ++row) {
    for (size_t i = 0; i < row->cells.size() && (historical || !row->is_lost); ++i) {
      Cell& cell = row->cells[i];
      const bool is_this = cell.handed_over != connection_ && cell.alias == *metric.alias &&
                           static_cast<uint64_t>(cell.time) == *metric.time &&
                           holds(metric, cell.type, cell.good, cell.bits, cell.bytes);
      if (!is_this) continue;
      cell.handed_over = connection_;
      next = row->id;
      return {row->id, i};
    }
    // What arrived on an earlier connection may have left, or comes once more. What this step dropped is judged behind
    // it.
    if (row->is_complete || is_handed_over(*row) || row->id < journal_->first_id()) continue;
    throw Violation(std::string(historical ? "history" : "live data") + " of " + name_of_.at(*metric.alias).first +
                    " at " + std::to_string(*metric.time) + " is not the next of the journal, which is " + told(*row));
  }
  throw Violation(std::string(historical ? "history" : "live data") + " of " + name_of_.at(*metric.alias).first +
                  " at " + std::to_string(*metric.time) + " is in no row that may be published as such");
}

uint64_t Ledger::match_death() {
  for (auto row = from(next_live_); row != rows_.end(); ++row) {
    if (row->is_lost && row->death_handed_over != connection_) {
      row->death_handed_over = connection_;
      next_live_ = row->id;
      return row->id;
    }
    if (!row->is_complete && !is_handed_over(*row)) throw Violation("the device's death is told before " + told(*row));
  }
  throw Violation("the device's death is told, and the journal has no loss of the controller");
}

const Ledger::Cell* Ledger::cell(Place place) {
  const Row* row = find(place.row);
  return row == nullptr ? nullptr : &row->cells[place.cell];
}

bool Ledger::accept(Place place) {
  Row* row = find(place.row);
  if (row == nullptr) return false;
  const bool was_accepted = row->cells[place.cell].accepted;
  row->cells[place.cell].accepted = true;
  complete(*row);
  return was_accepted;
}

void Ledger::accept_death(uint64_t id) {
  Row* row = find(id);
  if (row == nullptr) return;
  row->death_accepted = true;
  complete(*row);
}

}  // namespace plc_gateway::simulation
