// What the controller holds, written out: values for people, everything for comparisons.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

// "Table[3] = 5", one line per element of the variable, those outside its bounds included.
std::string list_variable(const VariableStore& store, const Variable& variable);

// Every word of every bank, 16 to a line: "23 values 000010: 0001 0002 ...". Equal texts are equal memories.
std::string list_memory(const VariableStore& store);

// One object with one entry per element: name, program, subscripts, type, value, raw words.
nlohmann::json memory_json(const VariableStore& store);

struct ListedElement {
  std::string name;
  std::string type;
  std::string value;
};

struct Listed {
  std::vector<ListedElement> elements;
  bool has_more = false;
};

// The first `limit` elements whose name contains `part`, values as text; of the first 100000 elements that may.
Listed list_elements(const VariableStore& store, const std::string& part, size_t limit);

// Text "MAIN/Table[3]" of an element; subscripts as declared or as named outside the bounds.
std::string element_text(const Variable& variable, const std::string& subscripts);

}  // namespace plc_sim
