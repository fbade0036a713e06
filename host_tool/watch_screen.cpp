// Draws the table of watch and keeps it in its place.
#include "watch_screen.h"

#include <sys/ioctl.h>

#include <algorithm>

#include "utf8_text.h"
#include "value_type.h"

namespace plc_host {
namespace {

constexpr std::chrono::seconds kMarkTime{1};  // how long a change is marked
constexpr size_t kWidestName = 40;
constexpr size_t kAgeColumns = 6;
constexpr char kGap[] = "  ";

std::string value_text(const WatchRow& row) {
  if (row.error.empty()) return row.text;
  return (row.text.empty() ? "" : row.text + kGap) + std::string("(") + row.error + ")";
}

struct Widths {
  size_t name = 4;
  size_t type = 4;
};

std::string table_line(const Widths& widths, const std::string& name, const std::string& type, const std::string& mark,
                       const std::string& age, const std::string& value, size_t columns) {
  const std::string line = pad_columns(fit_columns(name, widths.name), widths.name) + kGap +
                           pad_columns(type, widths.type) + kGap + pad_columns(mark, 1) + " " +
                           pad_columns(age, kAgeColumns) + kGap + value;
  return fit_columns(line, columns);
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

std::vector<std::string> draw_table(const WatchState& state, WatchTime now, size_t columns, size_t height) {
  Widths widths;
  for (const WatchRow& row : state.rows()) {
    widths.name = std::max(widths.name, std::min(display_width(row.latest.name), kWidestName));
    widths.type = std::max(widths.type, declared_type(row.latest.reference.tag->entry).size());
  }
  std::vector<std::string> lines = {table_line(widths, "NAME", "TYPE", "", "AGE", "VALUE", columns)};
  const size_t all = state.rows().size();
  const bool all_fit = all + 2 <= height;
  const size_t shown = all_fit ? all : (height > 3 ? height - 3 : 0);
  for (size_t i = 0; i < shown; ++i) {
    const WatchRow& row = state.rows()[i];
    const std::string age = row.changed_at ? age_text(now - *row.changed_at) : "-";
    const bool marked = row.changed_at && now - *row.changed_at < kMarkTime;
    lines.push_back(table_line(widths, row.latest.name, declared_type(row.latest.reference.tag->entry),
                               marked ? "*" : "", age, value_text(row), columns));
  }
  if (!all_fit) lines.push_back(fit_columns("... and " + std::to_string(all - shown) + " more", columns));
  lines.push_back(
      fit_columns(state.is_away() ? "the controller does not answer; Ctrl-C ends" : "Ctrl-C ends", columns));
  return lines;
}

WatchScreen::WatchScreen(FILE* file) : file_(file) { std::fputs("\033[?25l", file_); }

WatchScreen::~WatchScreen() {
  std::fputs("\033[?25h", file_);
  std::fflush(file_);
}

ScreenSize WatchScreen::size() const {
  struct winsize window {};
  ScreenSize size;
  if (ioctl(fileno(file_), TIOCGWINSZ, &window) != 0) return size;
  if (window.ws_col > 0) size.columns = window.ws_col;
  if (window.ws_row > 0) size.rows = window.ws_row;
  return size;
}

void WatchScreen::show(const std::vector<std::string>& lines) {
  take_away();
  for (const std::string& line : lines) std::fputs((line + "\n").c_str(), file_);
  shown_ = lines.size();
  std::fflush(file_);
}

void WatchScreen::clear() {
  take_away();
  std::fflush(file_);
}

void WatchScreen::take_away() {
  if (shown_ > 0) std::fprintf(file_, "\033[%zuA\033[J", shown_);
  shown_ = 0;
}

}  // namespace plc_host
