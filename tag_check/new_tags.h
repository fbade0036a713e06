// Lines of tag files from names and types, held by the rules of the checker.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "finding.h"

namespace tag_check {

// A variable as somebody wrote it down.
struct NewTag {
  std::string name;
  std::string type;    // as the driver has it, or with its ranges or its length: INT[0..9], STRING(20)
  std::string ranges;  // 0..9, [0..9_0..4]
  std::string length;
  std::string scope;  // its program; empty for a global variable
  std::string number = "0";
  std::string device;
  uint32_t place = 1;  // line of the list in which it stands
};

// A list of variables, and what is wrong with it.
struct NewTagList {
  std::vector<NewTag> tags;
  std::vector<Finding> findings;
};

// Reads names and types as spreadsheets write them: commas, semicolons or tabs, quotes, UTF-8 or UTF-16. A heading says
// which column holds what; without one they are name, type, ranges, length, program and device.
NewTagList read_tag_list(std::string_view text);

// What the lines are to stand behind, and the id of the first of them.
struct NewTagPlace {
  std::string_view before;  // the lines of a tag file
  std::string name;         // of that file
  uint32_t first_id = 0;
};

struct NewTagLines {
  std::string text;               // a line for each variable
  std::vector<Finding> findings;  // by the places of the variables
};

// Types and ranges that have one meaning are written as the driver wants them, with a finding that is fixable.
NewTagLines make_tag_lines(const std::vector<NewTag>& tags, const NewTagPlace& place);

}  // namespace tag_check
