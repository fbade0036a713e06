// Compares rounds and decides what is worth saying.
#include "watch_state.h"

#include <algorithm>

namespace plc_host {

WatchState::WatchState(const std::vector<TagReference>& references)
    : rows_(references.size()), failures_in_a_row_(references.size(), 0), failure_reported_(references.size(), false) {
  for (size_t i = 0; i < references.size(); ++i) {
    rows_[i].latest.name = references[i].text;
    rows_[i].latest.reference = references[i];
  }
}

void WatchState::take_result(size_t row, const TagResult& result, WatchTime now, RoundOutcome& outcome) {
  WatchRow& entry = rows_[row];
  if (!result.ok()) {
    entry.error = result.error;
    ++failures_in_a_row_[row];
    if (!entry.changed_at) entry.latest = result;
    const bool certain = !entry.changed_at || failures_in_a_row_[row] > 1;
    if (!certain || failure_reported_[row] || is_away()) return;
    failure_reported_[row] = true;
    outcome.failed.push_back(row);
    return;
  }
  const std::string text = format_value(result.reference.tag->entry, result.value, result.reference.extents);
  // A value that comes back after a reported failure is news even when it is the old one.
  const bool changed = !entry.changed_at || text != entry.text;
  if (changed || failure_reported_[row]) outcome.changed.push_back(row);
  if (changed) entry.changed_at = now;
  entry.latest = result;
  entry.text = text;
  entry.error.clear();
  failures_in_a_row_[row] = 0;
  failure_reported_[row] = false;
}

RoundOutcome WatchState::take_round(const std::vector<TagResult>& results, WatchTime now) {
  RoundOutcome outcome;
  const auto taken = [](const TagResult& result) { return !result.name.empty(); };
  const auto succeeded = [&taken](const TagResult& result) { return taken(result) && result.ok(); };
  const bool any = std::any_of(results.begin(), results.end(), taken);
  const bool answered = std::any_of(results.begin(), results.end(), succeeded);
  const bool cut_off =
      std::any_of(results.begin(), results.end(), [](const TagResult& r) { return r.connection_lost; });
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
    if (taken(results[i])) take_result(i, results[i], now, outcome);
  }
  return outcome;
}

bool WatchState::is_new_line(const std::string& line) { return shown_lines_.insert(line).second; }

}  // namespace plc_host
