// Draws the table of watch and keeps it in its place.
#include "tools/plc_host/watch/watch_screen.h"

#include <sys/ioctl.h>

#include <algorithm>

#include "base/shown_text.h"
#include "client/values/utf8_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/colors.h"

namespace plc_host {
namespace {

constexpr std::chrono::seconds kMarkTime{1};  // how long a change is marked
constexpr size_t kWidestName = 40;
constexpr size_t kAgeColumns = 6;
constexpr char kColumnGap[] = "  ";
constexpr char kCut[] = "\xE2\x80\xA6";

// A part of a number would be taken for another number, so a list ends behind a whole one.
std::string whole_numbers(const std::string& text, size_t room) {
  if (display_width(text) <= room) return text;
  const size_t comma = room < 2 ? std::string::npos : text.rfind(',', room - 2);
  return (comma == std::string::npos ? "" : text.substr(0, comma + 1)) + kCut;
}

// The value; without one of this round the reason, and what there was before where that has room.
std::string value_text(const WatchRow& row, const DrawTime& time, size_t room) {
  const bool is_text = value_kind(row.latest.reference.tag->entry) == ValueKind::kText;
  if (row.latest.ok() && !time.waiting_since) return is_text ? row.last_text : whole_numbers(row.last_text, room);
  std::string reason = time.waiting_since ? waiting_text(time) : row.latest.reading.failure().reason;
  if (!row.changed_at) return reason;
  std::string with_value = reason + "; " + row.last_text + " was read " + age_text(time.now - row.read_at) + " ago";
  return display_width(with_value) <= room ? with_value : reason;
}

struct Widths {
  size_t name = 4;
  size_t type = 4;
  size_t state = 5;
  size_t before_value() const { return name + type + kAgeColumns + state + 2 + 4 * (sizeof kColumnGap - 1); }
};

struct Cells {
  std::string name;
  std::string type;
  std::string mark;
  std::string age;
  std::string state;
  std::string value;
};

std::string table_line(const Widths& widths, const Cells& cells, size_t columns) {
  const std::string line = pad_columns(fit_columns(cells.name, widths.name), widths.name) + kColumnGap +
                           pad_columns(cells.type, widths.type) + kColumnGap + pad_columns(cells.mark, 1) + " " +
                           pad_columns(cells.age, kAgeColumns) + kColumnGap + pad_columns(cells.state, widths.state) +
                           kColumnGap + cells.value;
  return fit_columns(line, columns);
}

std::string state_word(const WatchRow& row, const DrawTime& time) {
  return time.waiting_since ? "waiting" : quality_word(row.latest.reading.quality());
}

// Age and mark belong to a value of this round: one that is older has neither.
Cells cells_of(const WatchRow& row, const DrawTime& time, size_t room) {
  const bool has_value = row.latest.ok() && !time.waiting_since;
  return {plc_base::shown_first(row.latest.name),
          declared_type(row.latest.reference.tag->entry),
          has_value && time.now - *row.changed_at < kMarkTime ? "*" : "",
          has_value ? age_text(time.now - *row.changed_at) : "-",
          state_word(row, time),
          plc_base::shown_line(value_text(row, time, room))};
}

const Cells kHeading = {"NAME", "TYPE", "", "AGE", "STATE", "VALUE"};

Widths widths_of(const WatchState& state, const DrawTime& time) {
  Widths widths;
  for (const WatchRow& row : state.rows()) {
    widths.name = std::max(widths.name, std::min(display_width(plc_base::shown_first(row.latest.name)), kWidestName));
    widths.type = std::max(widths.type, declared_type(row.latest.reference.tag->entry).size());
    widths.state = std::max(widths.state, state_word(row, time).size());
  }
  return widths;
}

// mark stands before the row, in the columns that there are.
std::string row_line(const WatchRow& row, const DrawTime& time, const Widths& widths, const std::string& mark,
                     size_t columns) {
  const size_t left = columns - std::min(columns, display_width(mark));
  const Cells cells = cells_of(row, time, left - std::min(left, widths.before_value()));
  const Tint tint = !row.latest.ok() || time.waiting_since ? Tint::kBad
                    : cells.mark.empty()                   ? Tint::kNone
                                                           : Tint::kChanged;
  return fit_columns(mark, columns) + tinted(table_line(widths, cells, left), tint);
}

bool has_value(const WatchState& state) {
  return std::any_of(state.rows().begin(), state.rows().end(), [](const WatchRow& row) { return row.latest.ok(); });
}

// A time stands only behind what was asked or read then.
std::string status_line(const WatchState& state, const DrawTime& time) {
  if (time.waiting_since) return waiting_text(time) + "; Ctrl-C ends";
  if (state.contact() == Contact::kValues && !has_value(state)) {
    return std::string(state.round_time() == WallTime{} ? "nothing read yet" : "nothing read") + "; Ctrl-C ends";
  }
  const char* const words = state.contact() == Contact::kValues   ? "read at "
                            : state.contact() == Contact::kSilent ? "the controller does not answer, asked at "
                                                                  : "no values, asked at ";
  return words + local_time_text(state.round_time()) + "; Ctrl-C ends";
}

}  // namespace

std::string age_text(std::chrono::nanoseconds age) {
  const double seconds = std::chrono::duration<double>(age).count();
  char text[32];
  if (seconds < 10) {
    std::snprintf(text, sizeof text, "%.1f s", seconds);
  } else if (seconds < 120) {
    std::snprintf(text, sizeof text, "%.0f s", seconds);
  } else if (seconds < 7200) {
    std::snprintf(text, sizeof text, "%.0f min", seconds / 60);
  } else {
    std::snprintf(text, sizeof text, "%.0f h", seconds / 3600);
  }
  return text;
}

std::string waiting_text(const DrawTime& time) { return "no reply for " + age_text(time.now - *time.waiting_since); }

std::vector<std::string> draw_table(const WatchState& state, const DrawTime& time, size_t columns, size_t height) {
  const Widths widths = widths_of(state, time);
  std::vector<std::string> lines = {table_line(widths, kHeading, columns)};
  const size_t all = state.rows().size();
  const bool all_fit = all + 2 <= height;
  const size_t shown = all_fit ? all : (height > 3 ? height - 3 : 0);
  for (size_t i = 0; i < shown; ++i) lines.push_back(row_line(state.rows()[i], time, widths, "", columns));
  if (!all_fit) lines.push_back(fit_columns("... and " + std::to_string(all - shown) + " more", columns));
  lines.push_back(fit_columns(status_line(state, time), columns));
  return lines;
}

std::vector<std::string> draw_part(const WatchState& state, const DrawTime& time, size_t columns,
                                   const TablePart& part) {
  const Widths widths = widths_of(state, time);
  std::vector<std::string> lines = {fit_columns("  " + table_line(widths, kHeading, columns), columns)};
  for (size_t i = 0; i < part.rows.size(); ++i) {
    lines.push_back(row_line(state.rows()[part.rows[i]], time, widths, i == part.marked ? part.mark : "  ", columns));
  }
  lines.push_back(fit_columns(part.place, columns));
  lines.push_back(fit_columns(status_line(state, time), columns));
  return lines;
}

std::vector<std::string> fit_rows(const std::vector<std::string>& lines, size_t rows) {
  const size_t room = rows > 1 ? rows - 1 : 1;
  if (lines.size() <= room) return lines;
  const size_t first_row = std::min<size_t>(1, lines.size() - 1);
  // As many of the last ones as are left, without the row that is there already.
  const size_t from = std::max(lines.size() - (room - 1), first_row + 1);
  std::vector<std::string> fitting = {lines[first_row]};
  fitting.insert(fitting.end(), lines.begin() + static_cast<std::ptrdiff_t>(from), lines.end());
  return fitting;
}

WatchScreen::WatchScreen(FILE* file, int terminal) : file_(file), terminal_(terminal) { begin_anew(); }

WatchScreen::~WatchScreen() {
  std::fputs("\033[?25h", file_);
  std::fflush(file_);
}

ScreenSize WatchScreen::size() const {
  struct winsize window {};
  ScreenSize size;
  if (ioctl(terminal_, TIOCGWINSZ, &window) != 0) return size;
  if (window.ws_col > 0) size.columns = window.ws_col;
  if (window.ws_row > 0) size.rows = window.ws_row;
  return size;
}

void WatchScreen::show(const std::vector<std::string>& lines) {
  take_away();
  // A line feed would move a single row out of sight.
  is_single_row_ = size().rows == 1;
  for (const std::string& line : lines) std::fputs((line + (is_single_row_ ? "" : "\n")).c_str(), file_);
  shown_ = lines.size();
  std::fflush(file_);
}

void WatchScreen::clear() {
  take_away();
  std::fflush(file_);
}

void WatchScreen::begin_anew() {
  std::fputs("\033[?25l", file_);
  shown_ = 0;
}

void WatchScreen::take_away() {
  if (shown_ > 0 && is_single_row_) std::fputs("\r\033[K", file_);
  if (shown_ > 0 && !is_single_row_) std::fprintf(file_, "\033[%zuA\033[J", shown_);
  shown_ = 0;
}

}  // namespace plc_host
