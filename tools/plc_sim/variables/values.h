// Values of elements: as text, as JSON, as sentinels, and moving.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_sim/variables/variable.h"

namespace plc_sim {

// Texts end at their first 00; they are quoted as set takes them, with escapes for what a terminal would obey or hide.
std::string value_text(const Memory& memory, const Element& element);

// Numbers beyond what JSON can hold (not-a-number, infinities) are text. A text is itself, without escapes of its own;
// null when it is no UTF-8.
nlohmann::json value_json(const Memory& memory, const Element& element);

// The element's words in memory order, "1234 5678"; "0" or "1" for a BOOL.
std::string raw_text(const Memory& memory, const Element& element);

// As base/values/typed_value.h takes values, by the element's type; dates and times as the number that their bits are.
// Empty when done, else what is wrong.
std::string set_value(Memory& memory, const Element& element, std::string_view text);

// The same for as many elements of one variable, all of them or none.
std::string set_values(Memory& memory, const std::vector<Element>& elements,
                       const std::vector<std::string_view>& texts);

// Gives the element a value that no other element of its width has, derived from its serial number.
void set_sentinel(Memory& memory, const Element& element, uint32_t serial);

// Moves a value on by one step: numbers grow, flags turn over at their own pace, texts stay.
void animate_value(Memory& memory, const Element& element, uint64_t step);

}  // namespace plc_sim
