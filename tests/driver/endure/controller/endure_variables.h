// The variables of the endurance program: what the tag file says of each, where the controller has it, and what a host
// may ask of it with a right outcome.
#pragma once

#include <unordered_map>

#include "tests/driver/endure/referee/endure_basics.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_endure {

enum class Scope : uint8_t { kGlobal, kMain, kMain2 };
constexpr uint32_t kScopes = 3;

// A bit or a word of the controller's memory.
struct Spot {
  uint32_t cell = 0;
  uint32_t bit = 0;
};

struct Variable {
  std::string name;
  Scope scope = Scope::kGlobal;
  uint8_t reg_type = 0;  // of its id, with the id's low half
  uint32_t low_id = 0;
  uint32_t bits = 16;       // 1, 16, 32, 64; 0: a text
  uint32_t elements = 1;    // of a text: units of two characters
  uint32_t name_bytes = 0;  // the longest name of an element on the wire
  bool is_array = false;
  bool is_written = true;
  bool rewrites_words = false;  // bits: a write reads a word and gives it back
  bool in_batch = true;
  std::vector<Spot> spots;  // by element: its first word, or its bit

  bool is_text() const { return bits == 0; }
  bool is_bit() const { return bits == 1; }
  uint32_t words() const { return bits <= 16 ? 1 : bits / 16; }
};

// What a name leads to.
struct NameRecord {
  Bytes with_dimensions;     // as it stands in a resolve reply
  uint32_t plain_bytes = 0;  // of it, without dimensions
};

// The file's variables in the controller's memory, which is laid out by the simulator's rules.
class VariableBook {
 public:
  explicit VariableBook(plc_sim::DirectoryOrder order);

  static const char* file_name();
  const std::string& file_text() const { return text_; }
  const std::vector<Variable>& variables() const { return variables_; }
  const std::vector<plc_sim::Program>& programs() const { return store_.directory(); }

  // By program (-1: global) and the name's bytes as they travel. Null when there is no such variable.
  const NameRecord* find_name(int program, const uint8_t* units, size_t bytes) const;

  uint32_t cell_count() const { return cell_count_; }
  // The first of `count` cells that a handle names. False when they are not all there.
  bool find_cells(const plc_sim::Handle& handle, uint32_t count, plc_sim::Place* place, uint32_t* cell) const;

 private:
  void declare(plc_sim::DirectoryOrder order);
  void lay_out_cells();
  void add_variable(const plc_sim::Variable& declared, size_t line);
  void add_name(const plc_sim::Variable& variable, const std::string& wire_name);

  std::string text_;
  plc_sim::VariableStore store_;
  std::vector<Variable> variables_;
  std::unordered_map<std::string, NameRecord> names_;
  struct Area {
    uint32_t first = 0;
    uint32_t count = 0;
  };
  std::vector<Area> areas_;  // by bank and part
  uint32_t cell_count_ = 0;
};

}  // namespace plc_endure
