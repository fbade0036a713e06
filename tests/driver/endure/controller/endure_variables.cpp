// The variables of the endurance program.
#include "tests/driver/endure/controller/endure_variables.h"

#include <algorithm>
#include <cstdlib>

#include "tools/plc_sim/controller/reply.h"
#include "wire/names.h"

namespace plc_endure {
namespace {

// Ranges begin at 0: with other lower bounds reads and writes of a host name different elements.
struct Tag {
  const char* name;
  const char* type;
  const char* ranges;
  uint32_t text_units;
  const char* device;
  bool rewrites_words;
  bool in_batch;
};

constexpr Tag kGlobals[] = {
    {"Constant", "INT", "", 0, "DM", false, true},
    {"Word", "INT", "", 0, "DM", false, true},
    {"Höhe", "UINT", "", 0, "EM", false, true},
    {"Double", "DINT", "", 0, "DM", false, true},
    {"Real", "REAL", "", 0, "ZF", false, true},
    {"Quad", "LINT", "", 0, "DM", false, false},
    {"Long", "LREAL", "", 0, "EM", false, false},
    {"Count", "INT", "", 0, "DM", false, true},
    {"Part.Speed", "INT", "", 0, "DM", false, true},
    {"Line[1].Count", "DINT", "", 0, "DM", false, true},
    {"Line[2].Count", "DINT", "", 0, "DM", false, true},
    {"Table", "INT", "[0..99]", 0, "DM", false, true},
    {"Doubles", "UDINT", "[0..59]", 0, "EM", false, true},
    {"Quads", "LREAL", "[0..24]", 0, "DM", false, false},
    {"Grid", "DINT", "[0..3_0..4]", 0, "DM", false, true},
    {"Field", "INT", "[0..9_0..9]", 0, "DM", false, true},
    {"Cube", "REAL", "[0..1_0..2_0..3]", 0, "ZF", false, true},
    {"Block", "INT", "[0..3_0..4_0..4]", 0, "DM", false, true},
    {"Station.Values", "WORD", "[0..29]", 0, "DM", false, true},
    {"Text", "STRING", "", 20, "DM", false, true},
    {"Recipe.Name", "STRING", "", 400, "DM", false, true},
    {"Bit", "BOOL", "", 0, "DM", false, true},
    {"Lamp", "BOOL", "", 0, "MR", false, true},
    {"Bits", "BOOL", "[0..79]", 0, "DM", false, true},
    {"BitGrid", "BOOL", "[0..3_0..7]", 0, "MR", false, true},
    {"BitCube", "BOOL", "[0..1_0..2_0..3]", 0, "LR", false, true},
    {"Part.Bit", "BOOL", "", 0, "DM", true, true},
    {"Part.Other", "BOOL", "", 0, "DM", true, true},
    {"Part.Lamp", "BOOL", "", 0, "MR", false, true},
    {"Part.Relay", "BOOL", "", 0, "LR", false, true},
    {"Part.Loose", "BOOL", "", 0, "ZF", true, true},
    {"Line[1].On", "BOOL", "", 0, "DM", false, true},
    {"Line[2].On", "BOOL", "", 0, "DM", false, true},
    {"Line[3].On", "BOOL", "", 0, "MR", false, true},
    {"Line[4].On", "BOOL", "", 0, "ZF", true, true},
    {"Line[5].On", "BOOL", "", 0, "ZF", true, true},
    {"Part.Flags", "BOOL", "[0..31]", 0, "DM", true, true},
    {"Part.FlagGrid", "BOOL", "[0..3_0..7]", 0, "DM", true, true},
    {"EmBits", "BOOL", "[0..39]", 0, "EM", true, false},
    {"EmGrid", "BOOL", "[0..2_0..6]", 0, "EM", true, false},
};

// Each program has these, and the global ones of the same names are not meant.
constexpr Tag kLocals[] = {
    {"Count", "INT", "", 0, "DM", false, true},
    {"Total", "DINT", "", 0, "DM", false, true},
    {"Table", "INT", "[0..99]", 0, "DM", false, true},
    {"Sums", "ULINT", "[0..9]", 0, "DM", false, false},
    {"Cube", "DINT", "[0..1_0..2_0..3]", 0, "DM", false, true},
    {"Text", "STRING", "", 30, "DM", false, true},
    {"Bit", "BOOL", "", 0, "DM", false, true},
    {"Bits", "BOOL", "[0..23]", 0, "DM", false, true},
    {"Part.Bit", "BOOL", "", 0, "DM", true, true},
    {"Part.Lamp", "BOOL", "", 0, "MR", true, true},
    {"Line[1].On", "BOOL", "", 0, "DM", true, true},
};

// Indexed variables have no device.
constexpr Tag kIndexed[] = {
    {"Station[1].Count", "UINT", "", 0, "", false, true},
    {"Station[2].Count", "UINT", "", 0, "", false, true},
    {"Station[3].Rates", "REAL", "[0..9]", 0, "", false, true},
};

constexpr uint32_t kFirstIndexedId = 0x40000;
constexpr uint8_t kMainNumber = 3;
constexpr uint8_t kMain2Number = 5;
constexpr size_t kParts = 3;

std::string line_of(const Tag& tag, uint32_t id, Scope scope, bool is_indexed) {
  std::string line = std::string(tag.name) + "," + tag.type + "," + tag.ranges + "," +
                     (tag.text_units == 0 ? "" : std::to_string(tag.text_units)) + ",a,b,c," + std::to_string(id);
  // Without the directory a local variable would be looked for in the other program.
  switch (scope) {
    case Scope::kGlobal:
      line += ",1,0,0,";
      break;
    case Scope::kMain:
      line += ",0,0," + std::to_string(kMain2Number) + ",MAIN";
      break;
    case Scope::kMain2:
      line += ",0,0," + std::to_string(kMainNumber) + ",MAIN2";
      break;
  }
  return line + (is_indexed ? "\n" : std::string(",") + tag.device + "0\n");
}

struct Entry {
  const Tag* tag;
  Scope scope;
  bool is_indexed;
};

std::vector<Entry> all_entries() {
  std::vector<Entry> entries;
  for (const Tag& tag : kGlobals) entries.push_back({&tag, Scope::kGlobal, false});
  for (const Tag& tag : kLocals) {
    entries.push_back({&tag, Scope::kMain, false});
    entries.push_back({&tag, Scope::kMain2, false});
  }
  for (const Tag& tag : kIndexed) entries.push_back({&tag, Scope::kGlobal, true});
  return entries;
}

Bytes wire_units(const std::string& name) {
  const std::optional<std::u16string> text = plc_sim::utf16_from_utf8(name);
  Bytes units;
  for (const char16_t unit : text.value()) {
    units.push_back(static_cast<uint8_t>(unit >> 8U));
    units.push_back(static_cast<uint8_t>(unit));
  }
  return units;
}

std::string name_key(int program, const uint8_t* units, size_t bytes) {
  std::string key(1, static_cast<char>(program + 1));
  key.append(reinterpret_cast<const char*>(units), bytes);
  return key;
}

}  // namespace

const char* VariableBook::file_name() { return "PLC7F000001_0.csv"; }

VariableBook::VariableBook(plc_sim::DirectoryOrder order) {
  declare(order);
  lay_out_cells();
  const std::vector<Entry> entries = all_entries();
  for (const auto& variable : store_.variables()) {
    // The line that declares it.
    add_variable(*variable, variable->tag.line - 1);
  }
  if (variables_.size() != entries.size()) {
    std::fprintf(stderr, "not every variable is declared\n");
    std::abort();
  }
}

void VariableBook::declare(plc_sim::DirectoryOrder order) {
  uint32_t plain = 0;
  uint32_t indexed = kFirstIndexedId;
  for (const Entry& entry : all_entries()) {
    text_ += line_of(*entry.tag, entry.is_indexed ? indexed++ : plain++, entry.scope, entry.is_indexed);
  }
  const plc_sim::TagFile file = plc_sim::read_tag_text(file_name(), text_);
  for (const plc_sim::TagProblem& problem : file.problems) {
    std::fprintf(stderr, "%s:%u: %s\n", file_name(), problem.line, problem.text.c_str());
  }
  const auto problems = store_.declare(file.tags, {{"MAIN", kMainNumber}, {"MAIN2", kMain2Number}}, order);
  for (const plc_sim::StoreProblem& problem : problems) {
    std::fprintf(stderr, "%s:%u: %s\n", file_name(), problem.line, problem.text.c_str());
  }
  // The largest indexed id cannot be addressed.
  text_ += "_end,INT,,,a,b,c," + std::to_string(indexed) + ",1,0,0,\n";
}

void VariableBook::lay_out_cells() {
  constexpr size_t kBanks = 256;
  areas_.resize(kBanks * kParts);
  for (const auto& [bank, content] : store_.memory().banks()) {
    for (size_t part = 0; part < kParts; ++part) {
      const auto words = static_cast<uint32_t>(content.parts[part].size());
      areas_[bank * kParts + part] = {cell_count_, words};
      cell_count_ += words;
    }
  }
}

void VariableBook::add_variable(const plc_sim::Variable& declared, size_t line) {
  const Entry entry = all_entries()[line];
  Variable variable;
  variable.name = declared.qualified_name();
  variable.scope = entry.scope;
  variable.reg_type = static_cast<uint8_t>(entry.is_indexed ? declared.tag.id >> 16U : 0);
  variable.low_id = entry.is_indexed ? declared.tag.id & 0xFFFFU : static_cast<uint32_t>(line);
  variable.bits = declared.tag.type->bits;
  variable.is_array = declared.is_array();
  variable.is_written = line != 0;
  variable.rewrites_words = entry.tag->rewrites_words;
  variable.in_batch = entry.tag->in_batch;
  variable.elements = declared.is_text() ? declared.units : declared.elements;
  for (uint32_t i = 0; i < variable.elements; ++i) {
    plc_sim::Place place = store_.element_place(declared, declared.is_text() ? 0 : i);
    place.word += declared.is_text() ? i : 0;
    const size_t area = place.bank * kParts + static_cast<size_t>(place.part);
    variable.spots.push_back({areas_[area].first + place.word, place.bit});
    if (!declared.is_text()) add_name(declared, declared.wire_name_of(i));
  }
  for (uint32_t i = 0; declared.is_text() && i < 2 * variable.elements; ++i) {
    add_name(declared, declared.tag.name + plc_sim::subscript_text({i}));
  }
  variable.name_bytes = static_cast<uint32_t>(2 + 2 * (declared.tag.name.size() + (declared.is_array() ? 14 : 0)));
  variables_.push_back(std::move(variable));
}

void VariableBook::add_name(const plc_sim::Variable& variable, const std::string& wire_name) {
  const auto program = variable.tag.is_global ? std::nullopt : std::optional<uint8_t>(variable.tag.program_number);
  plc_sim::ResolvedName name;
  name.element = store_.resolve(program, wire_name);
  if (!name.element || !name.element->index) {
    std::fprintf(stderr, "no element %s\n", wire_name.c_str());
    std::abort();
  }
  name.handle = plc_sim::handle_of(name.element->place);
  constexpr size_t kBeforeRecords = plc_sim::wire::kResolveHeadBytes - plc_sim::wire::kReplyHeadBytes;
  const Bytes body = plc_sim::resolve_body({name});
  NameRecord record;
  record.with_dimensions.assign(body.begin() + kBeforeRecords, body.end());
  record.plain_bytes = plc_sim::wire::kResolveRecordBytes;
  const Bytes units = wire_units(wire_name);
  names_[name_key(program ? *program : -1, units.data(), units.size())] = record;
}

const NameRecord* VariableBook::find_name(int program, const uint8_t* units, size_t bytes) const {
  const auto found = names_.find(name_key(program, units, bytes));
  return found == names_.end() ? nullptr : &found->second;
}

bool VariableBook::find_cells(const plc_sim::Handle& handle, uint32_t count, plc_sim::Place* place,
                              uint32_t* cell) const {
  const std::optional<plc_sim::Place> found = plc_sim::place_of(handle);
  if (!found) return false;
  const Area& area = areas_[found->bank * kParts + static_cast<size_t>(found->part)];
  if (found->word >= area.count || count > area.count - found->word) return false;
  *place = *found;
  *cell = area.first + found->word;
  return true;
}

}  // namespace plc_endure
