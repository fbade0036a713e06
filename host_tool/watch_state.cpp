// Compares rounds and decides what is worth saying.
#include "watch_state.h"

#include <algorithm>

namespace plc_host {

WatchState::WatchState(const std::vector<TagReference>& references)
    : rows_(references.size()),
      failures_in_a_row_(references.size(), 0),
      failure_reported_(references.size(), false),
      has_state_(references.size(), false) {
  for (size_t i = 0; i < references.size(); ++i) rows_[i].latest = unread(references[i]);
}

void WatchState::take_failure(size_t row, const TagResult& result, RoundOutcome& outcome) {
  WatchRow& entry = rows_[row];
  const bool had_value = entry.latest.ok();
  const bool is_other = result.reading.quality() != entry.latest.reading.quality();
  if (had_value || !has_state_[row] || (is_other && !is_away())) outcome.changed.push_back(row);
  has_state_[row] = true;
  entry.latest = result;
  if (!result.reading.is_taken()) return;
  ++failures_in_a_row_[row];
  const bool certain = !entry.changed_at || failures_in_a_row_[row] > 1;
  if (!certain || failure_reported_[row] || is_away()) return;
  failure_reported_[row] = true;
  outcome.failed.push_back(row);
}

void WatchState::take_value(size_t row, const TagResult& result, WatchTime now, RoundOutcome& outcome) {
  WatchRow& entry = rows_[row];
  const std::string text = format_value(result.reference.tag->entry, *result.reading.value(), result.reference.extents);
  const bool changed = !entry.changed_at || text != entry.last_text;
  // A value that comes back is news even when it is the old one.
  if (changed || !entry.latest.ok()) outcome.changed.push_back(row);
  if (changed) entry.changed_at = now;
  entry.latest = result;
  entry.last_text = text;
  has_state_[row] = true;
  entry.read_at = now;
  failures_in_a_row_[row] = 0;
  failure_reported_[row] = false;
}

RoundOutcome WatchState::take_round(const std::vector<TagResult>& results, WatchTime now) {
  RoundOutcome outcome;
  const auto taken = [](const TagResult& result) { return result.reading.is_taken(); };
  const auto succeeded = [](const TagResult& result) { return result.ok(); };
  const auto unconnected = [](const TagResult& result) {
    return !result.ok() && result.reading.failure().connection_lost;
  };
  const bool any = std::any_of(results.begin(), results.end(), taken);
  const bool answered = std::any_of(results.begin(), results.end(), succeeded);
  const bool cut_off = std::any_of(results.begin(), results.end(), unconnected);
  const bool had_values =
      std::any_of(rows_.begin(), rows_.end(), [](const WatchRow& row) { return row.changed_at.has_value(); });
  // Without any connection, or without any value where there were values, the controller is away.
  if (any && !answered && (cut_off || had_values) && !away_since_) {
    away_since_ = now;
    outcome.lost = true;
  } else if (answered && away_since_) {
    outcome.back = true;
    outcome.away = now - *away_since_;
    away_since_.reset();
    shown_lines_.clear();
  }
  for (size_t i = 0; i < std::min(results.size(), rows_.size()); ++i) {
    round_time_ = std::max(round_time_, results[i].reading.time());
    if (results[i].ok()) {
      take_value(i, results[i], now, outcome);
    } else {
      take_failure(i, results[i], outcome);
    }
  }
  return outcome;
}

bool WatchState::is_new_line(const std::string& line) { return shown_lines_.insert(line).second; }

}  // namespace plc_host
