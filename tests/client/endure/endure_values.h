// Variables with the elements that a program asks for, the values that the controller's memory holds for them, and
// values to be written, all worked out from the memory alone.
#pragma once

#include <string>
#include <vector>

#include "client/plc_client.h"
#include "tests/driver/endure/controller/endure_variables.h"
#include "tests/driver/endure/referee/endure_rules.h"

namespace plc_endure {

// A name as a program writes it, and what it means.
struct Chosen {
  const Variable* variable = nullptr;
  std::string name;
  plc_client::Kind kind = plc_client::Kind::kNone;
  size_t text_bytes = 0;           // of a text: the most that it may have
  std::vector<uint32_t> elements;  // positions in the variable, the last subscript fastest
  std::vector<size_t> shape;
};

// The variable, whole or a part of it; one element alone when is_single.
Chosen choose(const Variable& variable, const plc_client::Declaration& declaration, Random& random, bool is_single);

// Whether the variable had the value at a moment of the call; an array or a text that may have taken several exchanges
// may have had its elements at different ones.
bool had_value(const Memory& memory, const Chosen& chosen, const plc_client::Value& value);

// A value by chance. What a controller must be given for it is added to the targets, as this part of the call.
plc_client::Input draw_value(const Chosen& chosen, Random& random, uint32_t part, std::vector<Target>& targets);

// A program in the controller gives one element of the variable, or all of a text, another value at once.
void change(const Variable& variable, Memory& memory, Random& random);

}  // namespace plc_endure
