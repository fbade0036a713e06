// Compares values with their last rows and forms the next ones.
#include "tools/plc_host/watch_log/change_log.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include "base/shown_text.h"
#include "base/text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/results/result_writer.h"

namespace plc_host {
namespace {

using plc_base::shown_csv_cell;

constexpr char kEnded[] = ",,,ended,";
constexpr size_t kTimeLength = 24;  // of "2026-11-21T20:53:00.237Z"

std::vector<std::string> names_of(const TagReference& reference) {
  const ValueKind kind = value_kind(reference.tag->entry);
  const bool is_list = !reference.extents.empty() && kind != ValueKind::kText && kind != ValueKind::kRaw;
  if (!is_list) return {shown_csv_cell(reference.text)};
  std::vector<std::string> names;
  for (const Subscripts& element : chosen_elements(reference)) {
    names.push_back(shown_csv_cell(reference.tag->qualified_name + subscript_text(element)));
  }
  return names;
}

// The cell of an element, or of a text.
std::string cell_of(const TagReference& reference, const TagValue& value) {
  const std::string cells = csv_cells(reference, value).substr(1);
  return value.elements.empty() && value_kind(reference.tag->entry) == ValueKind::kRaw
             ? cells.substr(0, cells.find(','))
             : cells;
}

std::string value_row(WallTime time, const std::string& name, const std::string& cell, Quality quality) {
  return utc_time_text(time) + "," + name + "," + cell + "," + quality_word(quality) + ",\n";
}

// How far two numbers are from each other: the difference of whole ones need not fit their type.
long double distance(const TagEntry& entry, uint64_t before, uint64_t after) {
  const ValueKind kind = value_kind(entry);
  if (entry.bit_width < 64 || kind == ValueKind::kReal) {
    return std::fabs(static_cast<long double>(element_number(entry, after)) -
                     static_cast<long double>(element_number(entry, before)));
  }
  const bool is_up =
      kind == ValueKind::kUnsigned ? after > before : static_cast<int64_t>(after) > static_cast<int64_t>(before);
  return static_cast<long double>(is_up ? after - before : before - after);
}

std::string seconds_text(std::chrono::nanoseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(time).count());
  return text;
}

}  // namespace

ChangeLog::ChangeLog(LogFile& file, ChangeLogRules rules, const std::vector<TagReference>& references,
                     LogFile::Tell tell)
    : file_(file), rules_(rules), tell_(std::move(tell)), logged_(references.size()) {
  for (size_t i = 0; i < references.size(); ++i) logged_[i].names = names_of(references[i]);
}

void ChangeLog::begin(const std::string& about, WallTime now) {
  const LogPast& past = file_.past();
  if (!past.has_rows && !past.last_row_cut) return add_event("started", about, now);
  std::string reason = about;
  if (!past.last_row.empty()) reason += "; the last row before is of " + past.last_row.substr(0, kTimeLength);
  const bool has_ended = past.last_row.substr(std::min(kTimeLength, past.last_row.size())) == kEnded;
  if (!has_ended) reason += "; nobody ended the log before, so rows may be missing";
  if (past.last_row_cut) reason += "; a row that was cut off is taken away";
  add_event("continued", reason, now);
}

void ChangeLog::end(WallTime now) { add_event("ended", "", now); }

void ChangeLog::take_round(const WatchState& state, const RoundOutcome& outcome, WallTime now) {
  if (gap_.rows == 0 || close_gap(now)) forget_after_gap();
  if (outcome.contact) add_contact(outcome, now);
  for (size_t i = 0; i < logged_.size(); ++i) add_variable(state.rows()[i].latest, logged_[i], now);
}

// Nobody knows what the rows that are missing said: all values stand in the log anew.
void ChangeLog::forget_after_gap() {
  for (Logged& logged : logged_) logged.is_known = logged.is_known && !is_behind_gap_;
  is_behind_gap_ = false;
}

void ChangeLog::add_contact(const RoundOutcome& outcome, WallTime now) {
  const char* const word = *outcome.contact == Contact::kSilent         ? "lost"
                           : *outcome.contact == Contact::kNoValues     ? "no-values"
                           : outcome.contact_before == Contact::kSilent ? "back"
                                                                        : "values";
  add_event(word, *outcome.contact == Contact::kValues ? "after " + seconds_text(outcome.away) : outcome.reason, now);
}

void ChangeLog::add_variable(const TagResult& result, Logged& logged, WallTime now) {
  const Quality quality = result.reading.quality();
  const bool is_new = !logged.is_known || logged.quality != quality || rules_.every_round;
  logged.is_known = true;
  logged.quality = quality;
  if (result.ok()) return add_value(result, logged, is_new);
  if (!is_new) return;
  // What was not tried has no time of its own.
  const WallTime time = result.reading.is_taken() ? result.reading.time() : now;
  add_row(utc_time_text(time) + "," + shown_csv_cell(result.name) + ",," + quality_word(quality) + "," +
              shown_csv_cell(result.reading.failure().reason) + "\n",
          time);
}

void ChangeLog::add_value(const TagResult& result, Logged& logged, bool is_new) {
  const TagValue& value = *result.reading.value();
  const WallTime time = result.reading.time();
  if (value.elements.empty()) {
    if (!is_new && value.text == logged.value.text) return;
    logged.value = value;
    return add_row(value_row(time, logged.names[0], cell_of(result.reference, value), logged.quality), time);
  }
  const bool is_other_length = logged.value.elements.size() != value.elements.size();
  if (is_other_length) logged.value.elements.assign(value.elements.size(), 0);
  for (size_t i = 0; i < value.elements.size() && i < logged.names.size(); ++i) {
    const uint64_t bits = value.elements[i];
    uint64_t& before = logged.value.elements[i];
    if (!is_new && !is_other_length && !is_change(result.reference.tag->entry, before, bits)) continue;
    before = bits;
    add_row(value_row(time, logged.names[i], cell_of(result.reference, {{bits}, ""}), logged.quality), time);
  }
}

bool ChangeLog::is_change(const TagEntry& entry, uint64_t before, uint64_t after) const {
  if (before == after) return false;
  const ValueKind kind = value_kind(entry);
  if (kind != ValueKind::kSigned && kind != ValueKind::kUnsigned && kind != ValueKind::kReal) return true;
  // Not a number is no distance from anything.
  const bool is_near = distance(entry, before, after) <= static_cast<long double>(rules_.deadband);
  return !is_near;
}

void ChangeLog::add_event(const char* word, const std::string& reason, WallTime now) {
  add_row(utc_time_text(now) + ",,," + word + "," + shown_csv_cell(reason) + "\n", now);
}

void ChangeLog::add_row(const std::string& row, WallTime time) {
  if (gap_.rows > 0 && !close_gap(time)) return note_dropped(time, gap_.reason);
  const std::string problem = file_.append(row, time);
  if (!problem.empty()) return note_dropped(time, problem);
  ++written_;
}

void ChangeLog::note_dropped(WallTime time, const std::string& reason) {
  if (gap_.rows == 0) {
    gap_.from = gap_.to = time;
    tell_("cannot write " + file_.path() + ": " + reason + "; rows that are missing are counted");
  }
  gap_.from = std::min(gap_.from, time);
  gap_.to = std::max(gap_.to, time);
  gap_.reason = reason;
  is_behind_gap_ = true;
  ++gap_.rows;
  ++dropped_;
}

// Says in the log what is not in it, as soon as there is room.
bool ChangeLog::close_gap(WallTime now) {
  const std::string text = plc_base::plural(gap_.rows, "row") + " from " + utc_time_text(gap_.from) + " to " +
                           utc_time_text(gap_.to) + " could not be written: " + gap_.reason;
  const std::string row = utc_time_text(now) + ",,,dropped," + shown_csv_cell(text) + "\n";
  if (!file_.append(row, now).empty()) return false;
  ++written_;
  gap_ = {};
  tell_(file_.path() + " can be written again: " + text);
  return true;
}

}  // namespace plc_host
