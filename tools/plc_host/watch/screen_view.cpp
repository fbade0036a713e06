// Turns keys into places, and places into lines.
#include "tools/plc_host/watch/screen_view.h"

#include <algorithm>
#include <cctype>
#include <numeric>

#include "base/shown_text.h"
#include "client/values/utf8_text.h"
#include "client/values/value_type.h"

namespace plc_host {
namespace {

constexpr size_t kMostChanges = 50;
constexpr size_t kMostText = 200;  // columns of a value in the history
constexpr size_t kLongestFilter = 60;
constexpr size_t kLongestSequence = 8;
constexpr char kEscape = '\x1b';
constexpr std::ptrdiff_t kFar = 1 << 30;

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return text;
}

// "2026-11-21T20:53:00.237Z  good  12"
std::string history_line(const WatchRow& row) {
  const Reading& reading = row.latest.reading;
  // What was not tried has the time at which that was seen.
  const std::string time = utc_time_text(reading.is_taken() ? reading.time() : std::chrono::system_clock::now());
  const std::string text = row.latest.ok() ? row.last_text : reading.failure().reason;
  return time + "  " + quality_word(reading.quality()) + "  " + fit_columns(plc_base::shown_line(text), kMostText);
}

}  // namespace

ScreenView::ScreenView(const WatchState& state) : history_(state.rows().size()) {
  for (const WatchRow& row : state.rows()) names_.push_back(lower(row.latest.name));
  choose_rows();
}

void ScreenView::take_round(const WatchState& state, const RoundOutcome& outcome) {
  for (const size_t row : outcome.changed) {
    history_.at(row).push_front(history_line(state.rows()[row]));
    if (history_[row].size() > kMostChanges) history_[row].pop_back();
  }
}

void ScreenView::choose_rows() {
  const std::string wanted = lower(filter_);
  rows_.clear();
  for (size_t i = 0; i < names_.size(); ++i) {
    if (names_[i].find(wanted) != std::string::npos) rows_.push_back(i);
  }
  marked_ = first_ = 0;
}

void ScreenView::move(std::ptrdiff_t rows) {
  const auto last = static_cast<std::ptrdiff_t>(rows_.size()) - 1;
  marked_ = static_cast<size_t>(
      std::clamp<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(marked_) + rows, 0, std::max<std::ptrdiff_t>(last, 0)));
}

// A key that is more than a byte begins with Escape, as does the key Escape: that one comes alone.
void ScreenView::take_keys(std::string_view bytes) {
  if (bytes == std::string_view(&kEscape, 1)) {
    pending_.clear();
    take_byte(kEscape);
    return;
  }
  for (const char byte : bytes) {
    if (pending_.empty() && byte != kEscape) {
      take_byte(byte);
      continue;
    }
    pending_ += byte;
    const bool is_begin = pending_.size() < 3 && (byte == kEscape || byte == '[' || byte == 'O');
    const bool is_whole = !is_begin && (std::isalpha(static_cast<unsigned char>(byte)) != 0 || byte == '~');
    if (is_whole) take_sequence(std::string_view(pending_).substr(1));
    if (is_whole || pending_.size() > kLongestSequence) pending_.clear();
  }
}

void ScreenView::take_sequence(std::string_view sequence) {
  struct Key {
    std::string_view bytes;
    std::ptrdiff_t rows;
  };
  const auto page = static_cast<std::ptrdiff_t>(page_);
  const Key keys[] = {{"[A", -1},    {"OA", -1},    {"[B", 1},      {"OB", 1},    {"[5~", -page}, {"[6~", page},
                      {"[H", -kFar}, {"OH", -kFar}, {"[1~", -kFar}, {"[F", kFar}, {"OF", kFar},   {"[4~", kFar}};
  for (const Key& key : keys) {
    if (key.bytes == sequence) move(key.rows);
  }
}

void ScreenView::take_byte(char byte) {
  if (is_typing_) return take_typed(byte);
  take_command(byte);
}

void ScreenView::take_typed(char byte) {
  if (byte == '\n' || byte == '\r' || byte == kEscape) {
    is_typing_ = false;
    if (byte != kEscape) return;
    filter_.clear();
  } else if (byte == '\x7f' || byte == '\b') {
    // A character of UTF-8 goes as a whole.
    while (!filter_.empty() && (static_cast<unsigned char>(filter_.back()) & 0xC0U) == 0x80U) filter_.pop_back();
    if (!filter_.empty()) filter_.pop_back();
  } else if (static_cast<unsigned char>(byte) >= ' ' && filter_.size() < kLongestFilter) {
    filter_ += byte;
  }
  choose_rows();
}

void ScreenView::take_command(char byte) {
  if (byte == '\n' || byte == '\r') {
    is_history_ = !is_history_ && !rows_.empty();
  } else if (byte == kEscape) {
    if (!is_history_ && !filter_.empty()) {
      filter_.clear();
      choose_rows();
    }
    is_history_ = false;
  } else if (byte == '/') {
    is_history_ = false;
    is_typing_ = true;
    filter_.clear();
    choose_rows();
  } else if (byte == 'q') {
    is_left_ = true;
  } else if (byte == 'j' || byte == 'k') {
    move(byte == 'j' ? 1 : -1);
  }
}

std::string ScreenView::filter_text() const { return "/" + plc_base::shown_line(filter_) + (is_typing_ ? "_" : ""); }

std::string ScreenView::place_text(size_t first, size_t shown) const {
  const std::string filter = filter_text();
  const char* const typing_keys = "; Return ends its text, Escape the filter";
  if (rows_.empty()) {
    return "no name fits the filter " + filter + (is_typing_ ? typing_keys : "; / filters anew, Escape: all, q ends");
  }
  const std::string text =
      std::to_string(first + 1) + "-" + std::to_string(first + shown) + " of " + std::to_string(rows_.size());
  return text + (is_filtered() ? ", filter " + filter : "") +
         (is_typing_ ? typing_keys : "; arrows, / filters, Return: history, q ends");
}

std::vector<std::string> ScreenView::draw_history(const WatchState& state, const DrawTime& time, size_t columns,
                                                  size_t height) const {
  const size_t row = rows_.at(marked_);
  const TagResult& latest = state.rows()[row].latest;
  const std::string name = plc_base::shown_first(latest.name);
  const std::string waiting = time.waiting_since ? waiting_text(time) + "; " : "";
  const std::string status = fit_columns(waiting + "Return: the table; Ctrl-C ends", columns);
  if (height < 3) {
    const std::string newest = history_[row].empty() ? "no change yet" : history_[row].front();
    std::vector<std::string> lines = {fit_columns(name + "  " + newest, columns)};
    if (height == 2) lines.push_back(status);
    return lines;
  }
  std::vector<std::string> lines = {
      fit_columns(name + "  " + declared_type(latest.reference.tag->entry) + ", newest first", columns)};
  for (const std::string& line : history_[row]) {
    if (lines.size() + 1 < height) lines.push_back(fit_columns(line, columns));
  }
  lines.push_back(status);
  return lines;
}

std::vector<std::string> ScreenView::fit_table(const std::vector<std::string>& lines, size_t height) const {
  if (lines.size() <= height) return lines;
  const std::string& status = lines.back();
  const std::string& place = lines[lines.size() - 2];
  const std::string& first = lines[1];  // the marked row, or the place where there is none
  if (height == 1) return {first};
  if (height == 2) return {first, is_filtered() && !rows_.empty() ? place : status};
  return {first, place, status};
}

std::vector<std::string> ScreenView::draw(const WatchState& state, const DrawTime& time, size_t columns,
                                          size_t height) {
  constexpr size_t kOtherLines = 3;  // heading, place, status
  page_ = height > kOtherLines ? height - kOtherLines : 1;
  if (is_history_ && marked_ < rows_.size()) return draw_history(state, time, columns, height);
  const size_t most_first = rows_.size() > page_ ? rows_.size() - page_ : 0;
  first_ = std::min({first_, marked_, most_first});
  if (marked_ >= first_ + page_) first_ = marked_ + 1 - page_;
  const size_t shown = std::min(page_, rows_.size() - first_);
  TablePart part;
  const auto from = rows_.begin() + static_cast<std::ptrdiff_t>(first_);
  part.rows.assign(from, from + static_cast<std::ptrdiff_t>(shown));
  part.marked = marked_ - first_;
  part.place = place_text(first_, shown);
  // A single line has no other place for the filter.
  if (height == 1 && is_filtered()) part.mark = fit_columns(filter_text(), columns / 3) + " " + part.mark;
  return fit_table(draw_part(state, time, columns, part), height);
}

}  // namespace plc_host
