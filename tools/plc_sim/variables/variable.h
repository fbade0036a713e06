// One variable of the controller, and one element of it: what it is, and where it lies.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_sim/variables/memory.h"
#include "tools/plc_sim/variables/tag_reader.h"

namespace plc_sim {

// How a host is told where a BOOL is: by an address of its own, by its word and a bit number, or by both at once.
enum class BitRoad { kBit, kWord, kBoth };

struct Variable {
  TagDeclaration tag;
  Place first;
  BitRoad road = BitRoad::kBoth;
  uint32_t units = 1;     // 16-bit words of one element; of the whole text for strings with a length
  uint32_t elements = 1;  // 1 for scalars and texts
  uint32_t serial = 0;    // number of the first element among all elements declared
  std::map<std::vector<int64_t>, Place> outside;  // elements named outside the declared bounds

  bool is_array() const { return !tag.ranges.empty(); }
  bool is_text() const { return tag.is_text_with_length(); }
  bool is_flag() const { return tag.type->bits == 1; }
  // Types that a host writes bit by bit although they are no BOOLs: 8 bits wide, or without a width.
  bool is_flag_like() const { return tag.type->bits < 16 && !is_text(); }
  std::string wire_name_of(uint32_t element) const;
  std::string qualified_name() const;
  // The program's name; "#5" for the owner of local variables without a program name.
  std::string owner() const;
};

struct Element {
  Variable* variable = nullptr;
  Place place;
  std::optional<uint32_t> index;  // among the declared elements; empty outside the bounds
  uint32_t text_position = 0;     // characters into a text
};

// Which of the three roads serves every exchange that the host has for such a BOOL.
BitRoad bit_road_for(const TagDeclaration& tag);

}  // namespace plc_sim
