// The variables that the tag files declare, as a survey asks for them: of an array its last element, of a string its
// first piece.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "client/tags/tag_list.h"
#include "client/tags/tag_reference.h"
#include "tools/plc_host/client_names.h"
#include "wire/reply_parts.h"
#include "wire/request.h"

namespace plc_host::survey {

struct Declared {
  const Tag* tag = nullptr;
  std::string file;
  uint32_t line = 0;
  std::optional<uint16_t> area;  // that the file's name says
  std::string element;           // "[9]"; "" of what is no array
  std::string wire_name;         // of what is asked for, with the '#' before each subscript
  uint8_t units = 1;             // of its value; 0 where the driver transfers none
  bool is_program_known = true;  // false where the directory does not tell
  bool is_asked = true;          // its program is known, or it needs none
  std::optional<uint8_t> program;

  // What the controller said.
  bool is_good = false;
  plc_sim::Handle handle;
  uint16_t bit_number = 0;
  plc_sim::Bytes value;  // as it came
};

struct Declarations {
  std::deque<TagList> lists;  // the variables point into them
  std::vector<Declared> variables;
  std::vector<std::string> names() const;
};

// Adds what the file declares, each name once.
void add_declared(Declarations& declarations, TagList tags, const std::string& file, std::optional<uint16_t> area);

// Whether the bit is told by its position in the word and not by the address.
bool has_bit_position(const TagEntry& entry);

// The reference of a value request, from what the controller said of the name.
plc_sim::Reference reference_to(const Declared& declared);

// Where a BOOL lies in the word.
unsigned bit_of(const Declared& declared);

// The bytes of a value as plc-host read shows them.
std::string value_text(const Declared& declared, const plc_sim::Bytes& value);

// Whether two values are the same; of a BOOL the bit alone counts.
bool is_same_value(const Declared& declared, const plc_sim::Bytes& one, const plc_sim::Bytes& other);

}  // namespace plc_host::survey
