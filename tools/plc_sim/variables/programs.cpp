// The programs that own local variables.
#include "tools/plc_sim/variables/programs.h"

#include <algorithm>
#include <set>

namespace plc_sim {
namespace {

constexpr unsigned kHighestNumber = 255;

class Numbering {
 public:
  void add_name(const std::string& name) {
    if (std::find(names_.begin(), names_.end(), name) == names_.end()) names_.push_back(name);
  }
  void give(const std::string& name, uint8_t number) {
    if (numbers_.count(name) == 0) {
      numbers_[name] = number;
      taken_.insert(number);
    }
  }
  void give_if_free(const std::string& name, uint8_t number) {
    if (taken_.count(number) == 0) give(name, number);
  }
  void give_rest() {
    for (const std::string& name : names_) give(name, lowest_free());
  }
  std::vector<Program> programs() const {
    std::vector<Program> programs;
    for (const std::string& name : names_) programs.push_back({numbers_.at(name), name});
    return programs;
  }

 private:
  uint8_t lowest_free() const {
    unsigned number = 1;
    while (number < kHighestNumber && taken_.count(static_cast<uint8_t>(number)) != 0) ++number;
    return static_cast<uint8_t>(number);
  }

  std::vector<std::string> names_;
  std::map<std::string, uint8_t> numbers_;
  std::set<uint8_t> taken_;
};

}  // namespace

std::vector<Program> make_directory(const std::vector<TagDeclaration>& tags,
                                    const std::map<std::string, uint8_t>& given, DirectoryOrder order) {
  Numbering numbering;
  for (const TagDeclaration& tag : tags) {
    if (!tag.is_global && !tag.program.empty()) numbering.add_name(tag.program);
  }
  for (const auto& [name, number] : given) {
    numbering.add_name(name);
    numbering.give(name, number);
  }
  for (const TagDeclaration& tag : tags) {
    if (!tag.is_global && !tag.program.empty() && tag.program_number != 0) {
      numbering.give_if_free(tag.program, tag.program_number);
    }
  }
  numbering.give_rest();
  std::vector<Program> programs = numbering.programs();
  if (order == DirectoryOrder::kLongestFirst) {
    std::stable_sort(programs.begin(), programs.end(),
                     [](const Program& a, const Program& b) { return a.name.size() > b.name.size(); });
  }
  return programs;
}

}  // namespace plc_sim
