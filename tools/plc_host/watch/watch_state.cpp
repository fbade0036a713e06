// Compares rounds and decides what is worth saying.
#include "tools/plc_host/watch/watch_state.h"

#include <algorithm>

namespace plc_host {
namespace {

constexpr size_t kMostRemembered = 1000;  // of the driver, that are remembered

bool is_silent(Quality quality) {
  return quality == Quality::kNoAnswer || quality == Quality::kLost || quality == Quality::kNoConnection;
}

RoundSigns signs_of(const std::vector<TagResult>& results) {
  RoundSigns signs;
  for (const TagResult& result : results) {
    signs.answered = signs.answered || result.ok();
    signs.cut_off = signs.cut_off || (!result.ok() && result.reading.failure().connection_lost);
    if (result.reading.is_taken() && result.reading.quality() != Quality::kImpossible) signs.latest = &result;
  }
  return signs;
}

Contact contact_after(const RoundSigns& signs) {
  if (signs.answered) return Contact::kValues;
  const Reading& latest = signs.latest->reading;
  return is_silent(latest.quality()) && !latest.failure().has_answer ? Contact::kSilent : Contact::kNoValues;
}

}  // namespace

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
  if (had_value || !has_state_[row] || is_other) outcome.changed.push_back(row);
  has_state_[row] = true;
  entry.latest = result;
  if (!result.reading.is_taken()) return;
  ++failures_in_a_row_[row];
  const bool certain = !entry.changed_at || failures_in_a_row_[row] > 1;
  if (!certain || failure_reported_[row] || contact_ == Contact::kSilent) return;
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

void WatchState::change_contact(Contact contact, const TagResult& latest, WatchTime now, RoundOutcome& outcome) {
  outcome.contact = contact;
  outcome.contact_before = contact_;
  contact_ = contact;
  if (!latest.ok()) outcome.reason = latest.name + ": " + latest.reading.failure().reason;
  if (contact != Contact::kValues) return;
  if (failing_since_) outcome.away = now - *failing_since_;
  shown_lines_.clear();
}

void WatchState::take_contact(const std::vector<TagResult>& results, WatchTime began, WatchTime now,
                              RoundOutcome& outcome) {
  const RoundSigns signs = signs_of(results);
  if (signs.latest == nullptr) return;
  const Contact contact = contact_after(signs);
  if ((signs.cut_off || contact != Contact::kValues) && !failing_since_) failing_since_ = began;
  if (contact != contact_) change_contact(contact, *signs.latest, now, outcome);
  if (signs.answered && !signs.cut_off) failing_since_.reset();
  if (signs.answered && signs.cut_off && outcome.contact) failing_since_ = began;
}

RoundOutcome WatchState::take_round(const std::vector<TagResult>& results, WatchTime began, WatchTime now) {
  RoundOutcome outcome;
  take_contact(results, began, now, outcome);
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

bool WatchState::is_new_line(const std::string& line) {
  // Lines with numbers in them would fill the memory while a controller is away for weeks.
  if (shown_lines_.size() >= kMostRemembered) shown_lines_.clear();
  return shown_lines_.insert(line).second;
}

}  // namespace plc_host
