// The variables of the controller: what the tag files declare, where each element lives, and how a name finds it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_sim/variables/memory.h"
#include "tools/plc_sim/variables/programs.h"
#include "tools/plc_sim/variables/tag_reader.h"
#include "tools/plc_sim/variables/variable.h"

namespace plc_sim {

struct StoreProblem {
  std::string file;
  unsigned line;
  std::string text;
};

// A host that names elements without end must not fill the memory.
constexpr size_t kMostOutsideElements = 100000;

// The name as the console takes it: between quotes where blanks or hidden characters are in it.
std::string typeable_name(const std::string& name);

class VariableStore {
 public:
  // Numbers given here win over those in the tag files.
  std::vector<StoreProblem> declare(const std::vector<TagDeclaration>& tags,
                                    const std::map<std::string, uint8_t>& program_numbers, DirectoryOrder order);

  // The name as it travels; a local one with its program's number. Allocates elements outside the declared bounds, so
  // many in all; further ones are refused.
  std::optional<Element> resolve(std::optional<uint8_t> program, const std::string& wire_name);

  // The name as people write it, "MAIN/Speed" for a local variable; a bare name may be any program's when only one
  // has it. An array or text without subscripts gives its first element.
  std::optional<Element> find_typed(const std::string& name) const;

  // What is wrong with a name that find_typed finds nothing for, and which names are near.
  std::string why_not_found(const std::string& name) const;

  Place element_place(const Variable& variable, uint32_t index) const;

  // The name of the program with this number, "#5" when it has none.
  std::string program_text(uint8_t number) const;

  // Where else a variable of this name is: "global", a program's name, or nothing.
  std::string other_scope_of(std::optional<uint8_t> program, const std::string& wire_name) const;

  const std::vector<Program>& directory() const { return directory_; }
  std::vector<std::unique_ptr<Variable>>& variables() { return variables_; }
  const std::vector<std::unique_ptr<Variable>>& variables() const { return variables_; }
  Memory& memory() { return memory_; }
  const Memory& memory() const { return memory_; }

  // Elements that were made after the declaration start with this: used to fill them as the others were.
  uint32_t next_serial() const { return next_serial_; }
  void fill_new_elements_with_sentinels(bool fill) { fill_new_elements_ = fill; }

 private:
  struct Key {
    int program;  // -1 for global variables
    std::string name;
    bool operator<(const Key& other) const {
      return program != other.program ? program < other.program : name < other.name;
    }
  };

  std::string problem_with_program(const TagDeclaration& tag) const;
  int program_of(const TagDeclaration& tag) const;
  // The array declared elsewhere that the tag names one element of.
  const Variable* array_with_element(int program, const TagDeclaration& tag) const;
  std::string declare_one(const TagDeclaration& tag);
  std::unique_ptr<Variable> make_variable(const TagDeclaration& tag, int program);
  std::optional<Place> place_variable(Variable& variable);
  Variable* find(std::optional<uint8_t> program, const std::string& name) const;
  std::optional<Element> resolve_text(Variable& variable, int64_t position) const;
  std::optional<Element> resolve_array(Variable& variable, const std::vector<int64_t>& subscripts) const;
  std::optional<Element> known_element(Variable& variable, const std::string& wire_name) const;
  std::optional<Element> resolve_outside(Variable& variable, const std::vector<int64_t>& subscripts);

  std::vector<std::unique_ptr<Variable>> variables_;
  std::map<Key, Variable*> by_name_;
  std::vector<Program> directory_;
  Memory memory_;
  uint32_t next_serial_ = 0;
  bool fill_new_elements_ = false;
  size_t outside_elements_ = 0;
};

}  // namespace plc_sim
