// The programs that a tag file's lines name: which of them only blanks tell apart.
#pragma once

#include <map>
#include <set>
#include <string>
#include <string_view>

namespace tag_check {

class ProgramNames {
 public:
  ProgramNames() = default;
  explicit ProgramNames(std::string_view text);

  // Another program of the file that is the same without blanks; empty where there is none.
  std::string other_than(std::string_view program) const;

 private:
  void add_line(std::string_view line);

  std::map<std::string, std::set<std::string>, std::less<>> spellings_;  // by the name without blanks
};

}  // namespace tag_check
