// What the tag-file checker finds, and what it returns.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tag_check {

enum class Severity { kInfo, kWarning, kError };

// A change that has one safe meaning: these bytes become that text.
struct Edit {
  size_t offset;
  size_t length;
  std::string replacement;
};

struct Finding {
  const char* rule;  // "T001" ..., see rule_list.h
  uint32_t line;     // from 1
  uint32_t column;   // byte within the line, from 1
  std::string message;
  std::vector<Edit> edits;  // of the text that has the form which the driver wants
  bool by_form = false;     // corrected by writing the text in that form
  uint32_t last_line = 0;   // of several that have the same cause, the last one; else 0
  uint32_t other_line = 0;  // the line that its message names beside its own: T110 and T111; else 0
  bool has_remedy = false;  // its message says what to do, and what its rule says would not help

  // Whether it has one safe correction.
  bool is_fixable() const { return by_form || !edits.empty(); }
  // Whether it speaks of this line.
  bool covers(uint32_t number) const { return number == line || (number > line && number <= last_line); }
};

// What the driver makes of the file.
struct Understanding {
  bool loads = false;
  std::string lines;  // what the driver printed while it loaded the file
  uint32_t plain_records = 0;
  uint32_t max_indexed_id = 0;
  uint32_t groups = 0;
};

struct CheckOptions {
  bool has_address = false;
  uint32_t address = 0;  // the controller that the file is meant for
};

}  // namespace tag_check
