// Says why a typed name is no element: which other names are near, or what is wrong with its subscripts.
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "base/near_names.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "base/values/typed_value.h"
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

// What the variable takes instead of the subscripts that it was given.
std::string wanted_subscripts(const Variable& variable, const std::string& base) {
  return variable.is_array() ? "the array is " + base + range_text(variable.tag)
                             : base + " is one value and takes no subscript";
}

}  // namespace

std::string typeable_name(const std::string& name) {
  const bool is_plain = plc_base::shown_line(name) == name;
  const bool is_word =
      !name.empty() && name.front() != '\'' && name.front() != '"' && name.find(' ') == std::string::npos;
  if (is_plain && is_word) return name;
  if (is_plain && name.find('\'') == std::string::npos) return plc_base::quoted(name);
  return plc_base::quoted_with_escapes(name);
}

std::string VariableStore::why_not_found(const std::string& name) const {
  if (name.empty()) return "no variable is named; show lists them";
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
    called_names.push_back(typeable_name(names.back() + (has_subscripts ? name.substr(open) : "")));
  }
  if (called.size() > 1) {
    return "no variable alone is called " + plc_base::quoted(base) + ": write " + plc_base::words_with_or(called_names);
  }
  if (called.size() == 1 && has_subscripts) {
    return "no variable is called " + plc_base::quoted(name) + ": " + wanted_subscripts(*called.front(), base);
  }
  std::vector<std::string> near = plc_base::near_names(base, names);
  std::transform(near.begin(), near.end(), near.begin(), typeable_name);
  return "no variable is called " + plc_base::quoted(base) + "; " +
         (near.empty() ? "show lists them" : "did you mean " + plc_base::words_with_or(near) + "?");
}

}  // namespace plc_sim
