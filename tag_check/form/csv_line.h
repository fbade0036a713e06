// One line of comma-separated values as spreadsheets write it, taken apart: separators, quotes, blanks.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "base/utf8.h"

namespace tag_check {

using plc_base::without_blanks;

struct CsvField {
  std::string text;  // without its quotes
  size_t at = 0;     // where its text begins in the line
  bool is_quoted = false;
};

struct CsvLine {
  std::vector<CsvField> fields;
  bool has_quotes = false;
  bool is_broken = false;  // a quote without its end, or text behind one
};

// The sign between the fields: a comma unless there are more semicolons, tabs or vertical bars outside of quotes and
// subscripts.
char separator_of(std::string_view line);

// "semicolons", "tabs" and so on.
const char* separator_name(char separator);

CsvLine split_csv(std::string_view line, char separator);

constexpr size_t kProgramField = 11;  // of a tag file's line, column 12

// How many fields more than one a name takes whose subscripts were split at their commas.
size_t name_fields(const CsvLine& csv);

// A comma within the text that is none of a name's subscripts.
bool has_comma(std::string_view text, bool is_name);

}  // namespace tag_check
