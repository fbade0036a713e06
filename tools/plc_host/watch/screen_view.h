// What of the table is seen: the place that is scrolled to, the filter, the history of a row. No input or output.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_host/watch/watch_screen.h"
#include "tools/plc_host/watch/watch_state.h"

namespace plc_host {

class ScreenView {
 public:
  explicit ScreenView(const WatchState& state);

  // Keeps what has changed. Of each row the last kMostChanges changes stay.
  void take_round(const WatchState& state, const RoundOutcome& outcome);

  // Bytes as a terminal sends them: arrows, j and k, page keys, Home and End move the mark; / begins a filter, Return
  // ends its text, Escape ends the filter; Return shows the history of the marked row, and again the table.
  void take_keys(std::string_view bytes);

  // Whether q was pressed, to end.
  bool is_left() const { return is_left_; }

  // Lines of at most columns, at most height of them. Below 4 the marked row stays, then the filter, then the status;
  // of the history the newest change with its variable.
  std::vector<std::string> draw(const WatchState& state, const DrawTime& time, size_t columns, size_t height);

 private:
  void take_sequence(std::string_view sequence);
  void take_byte(char byte);
  void take_typed(char byte);
  void take_command(char byte);
  void move(std::ptrdiff_t rows);
  void choose_rows();
  std::vector<std::string> draw_history(const WatchState& state, const DrawTime& time, size_t columns,
                                        size_t height) const;
  // What a table of a single row keeps where not all of its lines have room.
  std::vector<std::string> fit_table(const std::vector<std::string>& lines, size_t height) const;
  std::string place_text(size_t first, size_t shown) const;
  bool is_filtered() const { return is_typing_ || !filter_.empty(); }
  std::string filter_text() const;

  std::vector<std::string> names_;
  std::vector<std::deque<std::string>> history_;  // newest first
  std::vector<size_t> rows_;                      // that the filter lets through
  std::string filter_;
  std::string pending_;  // the beginning of a key's bytes
  bool is_typing_ = false;
  bool is_history_ = false;
  bool is_left_ = false;
  size_t marked_ = 0;  // of rows_
  size_t first_ = 0;   // of rows_, on the screen
  size_t page_ = 1;
};

}  // namespace plc_host
