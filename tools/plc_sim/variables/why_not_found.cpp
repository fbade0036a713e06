// Says why a typed name is no element: which other names are near, or what is wrong with its subscripts.
#include <string>
#include <utility>
#include <vector>

#include "base/near_names.h"
#include "base/text.h"
#include "tools/plc_sim/variables/variables.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

// "[0..2]", "[1..2,0..3]"
std::string range_text(const TagDeclaration& tag) {
  std::string text;
  for (const Range& range : tag.ranges) {
    text += (text.empty() ? "[" : ",") + std::to_string(range.low) + ".." + std::to_string(range.high);
  }
  return text + "]";
}

// "MAIN/Speed" for a name without subscripts, whoever has it.
bool is_called(const Variable& variable, const std::string& name) {
  const std::string own = strip_subscript_marks(variable.tag.name);
  return name == own || (!variable.tag.is_global && name == variable.owner() + "/" + own);
}

std::string wrong_subscripts(const Variable& variable, const std::string& base, const std::string& subscripts) {
  const std::string quoted = plc_base::quoted(base + subscripts);
  if (!variable.is_array()) return quoted + ": " + base + " is one value and takes no subscript";
  const std::string array = base + range_text(variable.tag);
  const size_t given = split_element_name("x" + mark_subscripts(subscripts)).subscripts.size();
  if (given == 0) return quoted + ": a subscript is a number; the array is " + array;
  const size_t needed = variable.tag.ranges.size();
  if (given != needed) {
    return quoted + " has " + plc_base::plural(given, "subscript") + ", the array has " + std::to_string(needed) +
           ": " + array;
  }
  return quoted + " is outside the array " + array;
}

}  // namespace

std::string VariableStore::why_not_found(const std::string& name) const {
  if (name.empty()) return "the name of a variable is missing; show lists them";
  const size_t open = name.rfind('[');
  const bool has_subscripts = open != std::string::npos && open > 0 && name.back() == ']';
  const std::string base = has_subscripts ? name.substr(0, open) : name;
  std::vector<std::string> names;
  std::vector<const Variable*> called;
  std::vector<std::string> called_names;
  for (const auto& variable : variables_) {
    names.push_back(variable->qualified_name());
    if (!is_called(*variable, base)) continue;
    called.push_back(variable.get());
    called_names.push_back(names.back() + (has_subscripts ? name.substr(open) : ""));
  }
  if (called.size() > 1) {
    return "more than one variable is called " + plc_base::quoted(base) + ": write " +
           plc_base::joined_with_or(called_names);
  }
  if (called.size() == 1 && has_subscripts) return wrong_subscripts(*called.front(), base, name.substr(open));
  const std::string near = plc_base::did_you_mean(base, names);
  return "no variable is called " + plc_base::quoted(base) + "; " + (near.empty() ? "show lists them" : near);
}

}  // namespace plc_sim
