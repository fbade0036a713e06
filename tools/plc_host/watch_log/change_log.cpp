// Compares values with their last rows and forms the next ones.
#include "tools/plc_host/watch_log/change_log.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>
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

bool is_value(Quality quality) { return quality == Quality::kGood || quality == Quality::kUnguarded; }

std::string seconds_text(std::chrono::nanoseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(time).count());
  return text;
}

}  // namespace

ChangeLog::ChangeLog(LogFile& file, ChangeLogRules rules, const std::vector<TagReference>& references,
                     LogFile::Tell tell)
    : file_(file), rules_(rules), tell_(std::move(tell)), references_(references), logged_(references.size()) {
  for (size_t i = 0; i < references.size(); ++i) {
    logged_[i].names = names_of(references[i]);
    logged_[i].times.resize(logged_[i].names.size());
  }
  file_.begin_files_with([this](WallTime time) { return values_so_far(time); });
}

void ChangeLog::begin(const std::string& about, WallTime now) {
  const LogPast& past = file_.past();
  if (!past.has_rows && !past.last_row_cut) return write_row(event_row("started", about, now));
  std::string reason = about;
  if (!past.last_row.empty()) reason += "; the last row before is of " + past.last_row.substr(0, kTimeLength);
  const bool has_ended = past.last_row.substr(std::min(kTimeLength, past.last_row.size())) == kEnded;
  if (!has_ended) reason += "; nobody ended the log before, so rows may be missing";
  if (past.last_row_cut) reason += "; a row that was cut off is taken away";
  write_row(event_row("continued", reason, now));
}

void ChangeLog::end(WallTime now) { write_row(event_row("ended", "", now)); }

void ChangeLog::take_round(const WatchState& state, const RoundOutcome& outcome, WallTime now) {
  const WallTime start = start_of(state, now);
  if (gap_.rows == 0 || close_gap(start)) forget_after_gap();
  for (size_t i = 0; i < logged_.size(); ++i) collect_variable(state.rows()[i].latest, i, now);
  std::stable_sort(collected_.begin(), collected_.end(), [](const Row& a, const Row& b) { return a.time < b.time; });
  if (outcome.contact) collected_.insert(collected_.begin(), contact_row(outcome, start));
  write_collected();
}

// What is said before the values of a round has the time of the first of them: rows are in the order of their times.
WallTime ChangeLog::start_of(const WatchState& state, WallTime now) const {
  WallTime start = now;
  for (const WatchRow& row : state.rows()) {
    const Reading& reading = row.latest.reading;
    if (reading.is_taken() && reading.time() >= last_time_) start = std::min(start, reading.time());
  }
  return start;
}

void ChangeLog::write_collected() {
  for (next_ = 0; next_ < collected_.size(); ++next_) write_row(collected_[next_]);
  collected_.clear();
  next_ = 0;
}

// Nobody knows what the rows that are missing said: all values stand in the log anew.
void ChangeLog::forget_after_gap() {
  for (Logged& logged : logged_) logged.is_known = logged.is_known && !is_behind_gap_;
  is_behind_gap_ = false;
}

ChangeLog::Row ChangeLog::contact_row(const RoundOutcome& outcome, WallTime now) {
  const char* const word = *outcome.contact == Contact::kSilent         ? "lost"
                           : *outcome.contact == Contact::kNoValues     ? "no-values"
                           : outcome.contact_before == Contact::kSilent ? "back"
                                                                        : "values";
  return event_row(word, *outcome.contact == Contact::kValues ? "after " + seconds_text(outcome.away) : outcome.reason,
                   now);
}

void ChangeLog::collect_variable(const TagResult& result, size_t variable, WallTime now) {
  Logged& logged = logged_[variable];
  const Quality quality = result.reading.quality();
  const bool is_new = !logged.is_known || logged.quality != quality || rules_.every_round;
  logged.is_known = true;
  logged.quality = quality;
  if (result.ok()) return collect_value(result, variable, is_new);
  if (!is_new) return;
  logged.reason = result.reading.failure().reason;
  // What was not tried has no time of its own.
  const WallTime time = result.reading.is_taken() ? result.reading.time() : now;
  collect_row(utc_time_text(time) + "," + shown_csv_cell(result.name) + ",," + quality_word(quality) + "," +
                  shown_csv_cell(logged.reason) + "\n",
              time, variable, 0);
}

void ChangeLog::collect_value(const TagResult& result, size_t variable, bool is_new) {
  Logged& logged = logged_[variable];
  const TagValue& value = *result.reading.value();
  const WallTime time = result.reading.time();
  if (value.elements.empty()) {
    if (!is_new && value.text == logged.value.text) return;
    logged.value = value;
    return collect_row(value_row(time, logged.names[0], cell_of(result.reference, value), logged.quality), time,
                       variable, 0);
  }
  const bool is_other_length = logged.value.elements.size() != value.elements.size();
  if (is_other_length) logged.value.elements.assign(value.elements.size(), 0);
  for (size_t i = 0; i < value.elements.size() && i < logged.names.size(); ++i) {
    const uint64_t bits = value.elements[i];
    uint64_t& before = logged.value.elements[i];
    if (!is_new && !is_other_length && !is_change(result.reference.tag->entry, before, bits)) continue;
    before = bits;
    collect_row(value_row(time, logged.names[i], cell_of(result.reference, {{bits}, ""}), logged.quality), time,
                variable, i);
  }
}

void ChangeLog::collect_row(const std::string& text, WallTime time, size_t variable, size_t element) {
  logged_[variable].times[element] = time;
  collected_.push_back({text, time, variable, element});
}

bool ChangeLog::is_change(const TagEntry& entry, uint64_t before, uint64_t after) const {
  if (before == after) return false;
  const ValueKind kind = value_kind(entry);
  if (kind != ValueKind::kSigned && kind != ValueKind::kUnsigned && kind != ValueKind::kReal) return true;
  // Not a number is no distance from anything.
  const bool is_near = distance(entry, before, after) <= static_cast<long double>(rules_.deadband);
  return !is_near;
}

ChangeLog::Row ChangeLog::event_row(const char* word, const std::string& reason, WallTime now) {
  return {utc_time_text(now) + ",,," + word + "," + shown_csv_cell(reason) + "\n", now, 0, std::nullopt};
}

void ChangeLog::write_row(const Row& row) {
  if (gap_.rows > 0 && !close_gap(row.time)) return note_dropped(row.time, gap_.reason);
  const std::string problem = file_.append(row.text, row.time);
  if (!problem.empty()) return note_dropped(row.time, problem);
  last_time_ = row.time;
  ++written_;
}

// Behind a gap nobody knows whether they stand.
std::string ChangeLog::values_so_far(WallTime time) const {
  if (gap_.rows > 0 || is_behind_gap_) return {};
  const std::set<std::pair<size_t, size_t>> coming = coming_rows();
  std::string rows;
  for (size_t variable = 0; variable < logged_.size(); ++variable) {
    const Logged& logged = logged_[variable];
    const size_t count = !logged.is_known ? 0 : is_value(logged.quality) ? logged.names.size() : 1;
    for (size_t element = 0; element < count; ++element) {
      if (coming.count({variable, element}) == 0) rows += repeated_row(references_[variable], logged, element, time);
    }
  }
  return rows;
}

// Variables and elements whose own rows follow at once, and are not to be repeated.
std::set<std::pair<size_t, size_t>> ChangeLog::coming_rows() const {
  std::set<std::pair<size_t, size_t>> coming;
  for (size_t i = next_; i < collected_.size(); ++i) {
    if (collected_[i].element) coming.emplace(collected_[i].variable, *collected_[i].element);
  }
  return coming;
}

// No change: its time is that of the file's beginning, its reason says when the row was that it repeats.
std::string ChangeLog::repeated_row(const TagReference& reference, const Logged& logged, size_t element,
                                    WallTime time) {
  const bool has_value = is_value(logged.quality);
  const bool is_text = logged.value.elements.empty();
  if (!is_text && element >= logged.value.elements.size()) return {};
  const TagValue value = is_text ? logged.value : TagValue{{logged.value.elements[element]}, ""};
  std::string row = utc_time_text(time) + ",";
  row += has_value ? logged.names[element] + "," + cell_of(reference, value) : shown_csv_cell(reference.text) + ",";
  row.append(",").append(quality_word(logged.quality)).append(",");
  const std::string reason = "repeated; last row of " + utc_time_text(logged.times[element]) +
                             (has_value || logged.reason.empty() ? "" : "; " + logged.reason);
  return row + shown_csv_cell(reason) + "\n";
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
