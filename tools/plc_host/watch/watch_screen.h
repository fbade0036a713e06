// The table of watch: its lines, and their place in a terminal where each round redraws them.
#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_host/watch/watch_state.h"

namespace plc_host {

struct ScreenSize {
  size_t columns = 80;
  size_t rows = 24;
};

// When the table is drawn. waiting_since: that a call of the driver lasts, and nothing in the table is of this round.
struct DrawTime {
  WatchTime now;
  std::optional<WatchTime> waiting_since = std::nullopt;
};

// Heading, one line per row and a status line, none wider than columns. Rows that do not fit in height lines are
// counted in a line of their own.
std::vector<std::string> draw_table(const WatchState& state, const DrawTime& time, size_t columns, size_t height);

// Rows of the table that are shown, one of which is marked, and a line that says which they are.
struct TablePart {
  std::vector<size_t> rows;
  size_t marked = 0;  // of rows
  std::string place;
  std::string mark = "> ";
};

// Heading, a line for each row of the part, its place and a status line, none wider than columns.
std::vector<std::string> draw_part(const WatchState& state, const DrawTime& time, size_t columns,
                                   const TablePart& part);

// The lines that a terminal of so many rows has room for, in their order: the second of them, which is the table's
// first row, before the last ones, and the heading after all. The cursor stands below them, or behind them in a single
// row.
std::vector<std::string> fit_rows(const std::vector<std::string>& lines, size_t rows);

// "no reply for 4.2 s"; time has a call that lasts.
std::string waiting_text(const DrawTime& time);

// "0.4 s", "12 s", "3 min", "2 h"
std::string age_text(std::chrono::nanoseconds age);

class WatchScreen {
 public:
  // file writes to the terminal, whose cursor is hidden until the object ends.
  WatchScreen(FILE* file, int terminal);
  ~WatchScreen();
  WatchScreen(const WatchScreen&) = delete;
  WatchScreen& operator=(const WatchScreen&) = delete;

  ScreenSize size() const;

  // Puts lines in the place of those drawn before.
  void show(const std::vector<std::string>& lines);

  // Takes the lines away, so that something else can be printed above where they come next.
  void clear();

  // The lines are not where they were drawn: others came behind them. The next ones come below.
  void begin_anew();

 private:
  void take_away();

  FILE* file_;
  int terminal_;
  size_t shown_ = 0;
  bool is_single_row_ = false;  // where they are shown
};

}  // namespace plc_host
