// The variables of the controller: declaration, program numbers and the way from a name to an element.
#include "tools/plc_sim/variables/variables.h"

#include <algorithm>

#include "tools/plc_sim/variables/values.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

constexpr int kGlobalProgram = -1;
constexpr uint32_t kOpaqueUnits = 4;
constexpr uint32_t kTextWithoutLengthUnits = 16;
constexpr uint64_t kMostMebibytes = 128;  // of all declared variables; those of a controller have a few
constexpr size_t kMaxPrograms = 255;
constexpr size_t kMaxProgramNameUnits = 126;  // the directory gives a name's bytes plus two in one byte

uint32_t unit_count(const TagDeclaration& tag) {
  if (tag.is_text_with_length()) return static_cast<uint32_t>(tag.string_length);
  if (tag.type->bits != 0) return std::max(1U, tag.type->bits / kBitsPerWord);
  return tag.type->kind == TypeKind::kText ? kTextWithoutLengthUnits : kOpaqueUnits;
}

// The memory that the variable takes; of a single bit the word that it may share.
uint64_t word_count(const TagDeclaration& tag) {
  uint64_t elements = 1;
  for (const Range& range : tag.ranges) elements *= static_cast<uint64_t>(range.extent());
  return tag.type->bits == 1 ? (elements + kBitsPerWord - 1) / kBitsPerWord : elements * unit_count(tag);
}

std::optional<uint32_t> index_in_bounds(const TagDeclaration& tag, const std::vector<int64_t>& subscripts) {
  int64_t index = 0;
  for (size_t i = 0; i < subscripts.size(); ++i) {
    const Range& range = tag.ranges[i];
    if (subscripts[i] < range.low || subscripts[i] > range.high) return std::nullopt;
    index = index * range.extent() + (subscripts[i] - range.low);
  }
  return static_cast<uint32_t>(index);
}

bool same_declaration(const TagDeclaration& a, const TagDeclaration& b) {
  const auto same_range = [](const Range& x, const Range& y) { return x.low == y.low && x.high == y.high; };
  return a.type == b.type && a.string_length == b.string_length && a.device == b.device &&
         std::equal(a.ranges.begin(), a.ranges.end(), b.ranges.begin(), b.ranges.end(), same_range);
}

std::string declared_at(const TagDeclaration& tag) { return tag.file + ":" + std::to_string(tag.line); }

}  // namespace

std::vector<StoreProblem> VariableStore::declare(const std::vector<TagDeclaration>& tags,
                                                 const std::map<std::string, uint8_t>& program_numbers,
                                                 DirectoryOrder order) {
  directory_ = make_directory(tags, program_numbers, order);
  std::vector<StoreProblem> problems;
  // Names that end in a subscript come last: they may name an element of an array declared further down.
  for (const bool with_subscript : {false, true}) {
    for (const TagDeclaration& tag : tags) {
      if ((tag.name.back() == ']') != with_subscript) continue;
      const std::string problem = declare_one(tag);
      if (!problem.empty()) problems.push_back({tag.file, tag.line, problem});
    }
  }
  return problems;
}

std::string VariableStore::problem_with_program(const TagDeclaration& tag) const {
  if (directory_.size() > kMaxPrograms) return "more than 255 programs";
  const auto units = utf16_from_utf8(tag.program);
  return units && units->size() <= kMaxProgramNameUnits ? std::string{}
                                                        : "the program's name has more than 126 UTF-16 units";
}

int VariableStore::program_of(const TagDeclaration& tag) const {
  if (tag.is_global) return kGlobalProgram;
  const auto owner = std::find_if(directory_.begin(), directory_.end(),
                                  [&](const Program& program) { return program.name == tag.program; });
  return owner != directory_.end() ? owner->number : tag.program_number;
}

const Variable* VariableStore::array_with_element(int program, const TagDeclaration& tag) const {
  const ElementName parts = split_element_name(tag.name);
  const auto array = by_name_.find({program, parts.base});
  const bool is_element_name = !parts.subscripts.empty() && tag.ranges.empty() && !tag.is_text_with_length();
  if (!is_element_name || array == by_name_.end()) return nullptr;
  const TagDeclaration& array_tag = array->second->tag;
  const bool is_in_bounds =
      array_tag.ranges.size() == parts.subscripts.size() && index_in_bounds(array_tag, parts.subscripts).has_value();
  return is_in_bounds ? array->second : nullptr;
}

std::string VariableStore::declare_one(const TagDeclaration& tag) {
  std::string problem = problem_with_program(tag);
  if (!problem.empty()) return problem;
  const int program = program_of(tag);
  if (const Variable* array = array_with_element(program, tag)) {
    const bool same_road = !array->is_flag() || array->road == BitRoad::kBoth || array->road == bit_road_for(tag);
    return array->tag.type == tag.type && same_road
               ? std::string{}
               : "an element of the array at " + declared_at(array->tag) + " with another type or device";
  }
  const auto [entry, fresh] = by_name_.try_emplace(Key{program, tag.name}, nullptr);
  if (!fresh) {
    return same_declaration(entry->second->tag, tag) ? std::string{}
                                                     : "declared differently at " + declared_at(entry->second->tag);
  }
  constexpr uint64_t kWordsPerMebibyte = (1U << 20U) / sizeof(uint16_t);
  if (memory_.words() + word_count(tag) > kMostMebibytes * kWordsPerMebibyte) {
    by_name_.erase(entry);
    return "plc-sim serves variables of at most " + std::to_string(kMostMebibytes) +
           " MiB in all, and this one does not fit. The line is no fault for a controller";
  }
  auto variable = make_variable(tag, program);
  if (!variable) {
    by_name_.erase(entry);
    return "no room left in the memory of device " + device_name(tag.device);
  }
  entry->second = variable.get();
  variables_.push_back(std::move(variable));
  return {};
}

std::unique_ptr<Variable> VariableStore::make_variable(const TagDeclaration& tag, int program) {
  auto variable = std::make_unique<Variable>();
  variable->tag = tag;
  variable->tag.program_number = static_cast<uint8_t>(program);
  variable->road = tag.type->bits == 1 ? bit_road_for(tag) : BitRoad::kBoth;
  variable->units = unit_count(tag);
  for (const Range& range : tag.ranges) variable->elements *= static_cast<uint32_t>(range.extent());
  const auto place = place_variable(*variable);
  if (!place) return nullptr;
  variable->first = *place;
  variable->serial = next_serial_;
  next_serial_ += variable->elements;
  return variable;
}

std::optional<Place> VariableStore::place_variable(Variable& variable) {
  const uint8_t device = variable.tag.device;
  if (variable.is_flag()) {
    const Part part = variable.road == BitRoad::kWord ? Part::kBitWords : Part::kBitAddressed;
    if (!variable.is_array()) return memory_.take_bit(device, part);
    // Hosts take the bit of some one-dimensional arrays from the subscript itself.
    const int32_t low = variable.tag.ranges.size() == 1 ? variable.tag.ranges[0].low : 0;
    return memory_.take_bits(device, part, variable.elements, static_cast<uint32_t>(low) % kBitsPerWord);
  }
  auto place = variable.is_flag_like() ? memory_.take_bit_addressed_words(device, variable.elements * variable.units)
                                       : memory_.take_words(device, variable.elements * variable.units);
  if (place) place->units = variable.units;
  return place;
}

Place VariableStore::element_place(const Variable& variable, uint32_t index) const {
  Place place = variable.first;
  if (variable.is_flag()) {
    place.word += (variable.first.bit + index) / kBitsPerWord;
    place.bit = (variable.first.bit + index) % kBitsPerWord;
  } else {
    place.word += index * variable.units;
  }
  return place;
}

Variable* VariableStore::find(std::optional<uint8_t> program, const std::string& name) const {
  const auto found = by_name_.find({program ? *program : kGlobalProgram, name});
  return found == by_name_.end() ? nullptr : found->second;
}

std::string VariableStore::program_text(uint8_t number) const {
  const auto found = std::find_if(directory_.begin(), directory_.end(),
                                  [&](const Program& program) { return program.number == number; });
  return found == directory_.end() ? "#" + std::to_string(number) : found->name;
}

std::string VariableStore::other_scope_of(std::optional<uint8_t> program, const std::string& wire_name) const {
  const std::string base = split_element_name(wire_name).base;
  const int own = program ? *program : kGlobalProgram;
  for (const auto& [key, variable] : by_name_) {
    if (key.program != own && (key.name == wire_name || key.name == base)) {
      return variable->tag.is_global ? "global" : "in " + program_text(variable->tag.program_number);
    }
  }
  return {};
}

std::optional<Element> VariableStore::resolve_text(Variable& variable, int64_t position) const {
  Element element;
  element.variable = &variable;
  element.text_position = static_cast<uint32_t>(std::min<int64_t>(position, UINT32_MAX));
  element.place = variable.first;
  // Behind the text's end every position is its last word: the length of the text itself bounds what moves.
  const uint32_t word = std::min(element.text_position / 2, variable.units - 1);
  element.place.word += word;
  element.place.units -= word;
  element.place.second_char = element.text_position % 2 != 0;
  if (element.text_position / 2 < variable.units) element.index = 0;
  return element;
}

std::optional<Element> VariableStore::resolve_array(Variable& variable, const std::vector<int64_t>& subscripts) const {
  if (const auto index = index_in_bounds(variable.tag, subscripts)) {
    return Element{&variable, element_place(variable, *index), index, 0};
  }
  return std::nullopt;
}

std::optional<Element> VariableStore::resolve_outside(Variable& variable, const std::vector<int64_t>& subscripts) {
  const auto known = variable.outside.find(subscripts);
  if (known != variable.outside.end()) return Element{&variable, known->second, std::nullopt, 0};
  if (outside_elements_ >= kMostOutsideElements) return std::nullopt;
  const uint8_t device = variable.tag.device;
  std::optional<Place> place;
  if (variable.is_flag()) {
    const Part part = variable.road == BitRoad::kWord ? Part::kBitWords : Part::kBitAddressed;
    place = memory_.take_bits(device, part, 1, static_cast<uint32_t>(subscripts.back()) % kBitsPerWord);
  } else {
    place = variable.is_flag_like() ? memory_.take_bit_addressed_words(device, variable.units)
                                    : memory_.take_words(device, variable.units);
  }
  if (!place) return std::nullopt;
  variable.outside.emplace(subscripts, *place);
  ++outside_elements_;
  const Element element{&variable, *place, std::nullopt, 0};
  if (fill_new_elements_) set_sentinel(memory_, element, next_serial_);
  ++next_serial_;
  return element;
}

std::optional<Element> VariableStore::resolve(std::optional<uint8_t> program, const std::string& wire_name) {
  const ElementName parts = split_element_name(wire_name);
  Variable* array = parts.subscripts.empty() ? nullptr : find(program, parts.base);
  if (array != nullptr && array->is_text() && parts.subscripts.size() == 1) {
    if (parts.subscripts[0] >= 0) return resolve_text(*array, parts.subscripts[0]);
    array = nullptr;  // a text has no position there: a variable may be called so
  }
  const bool fits = array != nullptr && array->tag.ranges.size() == parts.subscripts.size();
  if (fits) {
    if (auto element = resolve_array(*array, parts.subscripts)) return element;
  }
  Variable* whole = find(program, wire_name);
  if (whole != nullptr && !whole->is_array() && !whole->is_text()) return Element{whole, whole->first, 0, 0};
  return fits ? resolve_outside(*array, parts.subscripts) : std::nullopt;
}

std::optional<Element> VariableStore::known_element(Variable& variable, const std::string& wire_name) const {
  const std::string& name = variable.tag.name;
  if (wire_name.compare(0, name.size(), name) != 0) return std::nullopt;
  const std::string rest = wire_name.substr(name.size());
  if (rest.empty()) return Element{&variable, variable.first, 0, 0};
  if (rest.front() != '[') return std::nullopt;  // of a longer name
  const auto subscripts = split_element_name("x" + rest).subscripts;
  if (!variable.is_array() || subscripts.size() != variable.tag.ranges.size()) return std::nullopt;
  const auto outside = variable.outside.find(subscripts);
  return outside == variable.outside.end() ? resolve_array(variable, subscripts)
                                           : Element{&variable, outside->second, std::nullopt, 0};
}

std::optional<Element> VariableStore::find_typed(const std::string& name) const {
  std::vector<Element> whole;  // those that are called so with their programs
  std::vector<Element> bare;
  for (const auto& variable : variables_) {
    const TagDeclaration& tag = variable->tag;
    const std::string program = tag.is_global ? "" : variable->owner() + "/";
    if (name.compare(0, program.size(), program) == 0) {
      const auto element = known_element(*variable, mark_subscripts(name.substr(program.size())));
      if (element) whole.push_back(*element);
    }
    if (tag.is_global) continue;
    if (const auto element = known_element(*variable, mark_subscripts(name))) bare.push_back(*element);
  }
  const std::vector<Element>& found = whole.empty() ? bare : whole;
  return found.size() == 1 ? std::optional<Element>(found.front()) : std::nullopt;
}

}  // namespace plc_sim
