// The text of a tag file as the driver wants it: what spreadsheets, editors and other systems did to its form is found
// out as one cause each and undone, so that the checks behind it look at what the file declares.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "finding.h"
#include "form/csv_line.h"
#include "form/program_names.h"

namespace tag_check {

class FileForm {
 public:
  // text outlives the form.
  explicit FileForm(std::string_view text);
  FileForm(const FileForm&) = delete;
  FileForm& operator=(const FileForm&) = delete;

  // The text to check and to correct: that of the file where nothing is wrong with its form.
  std::string_view text() const { return is_changed_ ? std::string_view(changed_) : original_; }

  // False for a text of which the characters are not known: only its form can be spoken of.
  bool is_readable() const { return is_readable_; }

  // What is wrong with the form, a finding for each cause.
  const std::vector<Finding>& findings() const { return findings_; }

  // Whether this line, from 1, is as it was because nobody can tell what it was meant to be.
  bool is_left(uint32_t line) const;

  // Lines that ended in a carriage return and a line feed.
  bool had_carriage_return(uint32_t line) const;
  uint32_t first_carriage_return() const { return carriage_returns_.empty() ? 0 : carriage_returns_.front(); }
  uint32_t last_carriage_return() const { return carriage_returns_.empty() ? 0 : carriage_returns_.back(); }
  size_t carriage_returns() const { return carriage_returns_.size(); }
  size_t lines() const { return line_; }

  // Where a column of a line of text() stands in the file.
  uint32_t original_column(uint32_t line, uint32_t column) const;

 private:
  // From this column of the changed line on, the original one has these.
  struct Shift {
    uint32_t line;
    uint32_t column;
    uint32_t original;
  };

  // One cause, wherever it was met.
  struct Cause {
    const char* rule;
    uint32_t first_line = 0;
    uint32_t last_line = 0;
    uint32_t column = 0;
    size_t lines = 0;
    bool is_undone = false;
  };

  void undo_lines(std::string_view text);
  // The lines that end in a carriage return alone; where what is behind them begins.
  size_t undo_split(std::string_view line);
  void undo_line(std::string_view line);
  void undo_fields(std::string_view line, char separator);
  void leave(std::string_view line);
  // Whether the blanks around the program tell it from another one; that is noted.
  bool keeps_program(const CsvLine& csv, size_t program);
  // Without the blanks of the fields behind the first up to this one.
  void append_fields(const CsvLine& csv, size_t last_stripped);
  void tell(const char* rule, std::string message, const Cause& cause);
  void tell_all();
  void meet(Cause* cause, uint32_t column, bool is_undone);

  std::string_view original_;
  std::string changed_;
  bool is_changed_ = false;
  bool is_readable_ = true;
  uint32_t line_ = 0;  // the one being looked at
  std::vector<Shift> shifts_;
  std::vector<uint32_t> left_;
  std::vector<uint32_t> carriage_returns_;
  ProgramNames programs_;
  std::string kept_text_;  // of the first program whose blanks are kept
  char separator_ = ',';
  Cause separators_{"T008"};
  Cause quotes_{"T009"};
  Cause broken_quotes_{"T009"};
  Cause returns_{"T012"};
  Cause commas_{"T014"};
  Cause blanks_{"T015"};
  Cause kept_programs_{"T015"};
  std::vector<Finding> findings_;
};

}  // namespace tag_check
