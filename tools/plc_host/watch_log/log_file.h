// The file of a log: grows by whole rows, is put aside by size or by day, and is never anybody else's.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/values/time_text.h"
#include "tools/plc_host/client_names.h"

namespace plc_host {

struct LogFileRules {
  std::string path;
  std::string heading;              // the first row of each file, by which a log is known again
  uint64_t most_bytes = 0;          // of a file; 0: any number. A file with a single row may be longer.
  bool daily = false;               // a file has rows of one day, of UTC
  uint32_t kept = 0;                // files put aside that stay; 0: all of them
  std::vector<std::string> inputs;  // what is read, and never written over
  int output = STDOUT_FILENO;       // the descriptor that results go to; no log is where they go
};

// What stood in the log before.
struct LogPast {
  bool has_rows = false;
  std::string last_row;       // empty also where it is longer than anybody looks
  bool last_row_cut = false;  // the row behind it had no end, and was taken away
};

class LogFile {
 public:
  // Like write(2): the disk, in the place of which tests have one that is full.
  using WriteCall = std::function<ssize_t(int, const void*, size_t)>;
  // What happened to the file and is no failure of a row.
  using Tell = std::function<void(const std::string&)>;
  // The rows, of this time, with which a file begins that is not the first; "" for none.
  using FirstRows = std::function<std::string(WallTime)>;

  LogFile(LogFileRules rules, Tell tell);
  LogFile(LogFileRules rules, Tell tell, WriteCall write_call);
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  const std::string& path() const { return rules_.path; }

  // Opens the log or makes one. Returns why not, empty when it is open.
  std::string open();
  // Of the log that open() found.
  const LogPast& past() const { return past_; }

  // Each file that append begins has them before its row, all of them or none: none where they would take more than
  // half of a file.
  void begin_files_with(FirstRows first_rows) { first_rows_ = std::move(first_rows); }
  // How many of them there are in all files.
  uint64_t first_rows_written() const { return first_rows_written_; }

  // Appends a row, which begins with its time and ends with its line, whole or not at all. Returns why it is not
  // there, empty when it is. After a failure the next call begins anew.
  std::string append(const std::string& row, WallTime time);

 private:
  std::string take_opened(int descriptor);
  std::string look_at_rows();
  std::string write_row(std::string_view row);
  std::string begin_file(WallTime time);
  std::string take_back_cut_row();
  void note_emptied();
  std::string reopen_where_taken_away();
  bool is_at_path() const;
  bool is_due(size_t more, std::string_view day) const;
  std::string put_aside(WallTime time);
  std::vector<std::string> files_put_aside() const;
  std::string free_name(WallTime time) const;
  void remove_surplus();
  void tell_once(const std::string& text);
  void close_file();

  LogFileRules rules_;
  Tell tell_;
  WriteCall write_call_;
  int descriptor_ = -1;
  uint64_t size_ = 0;        // of whole rows
  uint64_t begin_size_ = 0;  // of the heading and the first rows
  FirstRows first_rows_;
  uint64_t first_rows_written_ = 0;
  bool has_told_of_room_ = false;
  bool is_cut_ = false;
  std::string day_;  // of the last row; empty where there is none
  std::string told_;
  LogPast past_;
};

}  // namespace plc_host
