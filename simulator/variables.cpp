// The variables of the controller: declaration, program numbers and the way from a name to an element.
#include "simulator/variables.h"

#include <algorithm>
#include <set>

#include "simulator/names.h"
#include "simulator/values.h"

namespace plc_sim {
namespace {

constexpr uint8_t kDm = 6;
constexpr uint8_t kMr = 17;
constexpr uint8_t kLr = 18;
constexpr uint8_t kEm = 23;
constexpr uint8_t kNoDevice = 30;
constexpr int kGlobalProgram = -1;
constexpr uint32_t kOpaqueUnits = 4;
constexpr uint32_t kTextWithoutLengthUnits = 16;
constexpr uint32_t kBitsPerWord = 16;
constexpr size_t kMaxPrograms = 255;
constexpr size_t kMaxProgramNameUnits = 126;  // the directory gives a name's bytes plus two in one byte

bool on_em_with_bounds(const TagDeclaration& tag) {
  return tag.device == kEm && !tag.ranges.empty() && tag.ranges.back().high != 0;
}

bool single_read_takes_word(const TagDeclaration& tag) {
  const bool device_with_words = tag.device == kDm || tag.device == kEm || tag.device == kNoDevice;
  return (tag.name_kind != 1 && device_with_words) || on_em_with_bounds(tag);
}

bool batch_read_takes_word(const TagDeclaration& tag) { return tag.name_kind != 1; }

bool write_takes_word(const TagDeclaration& tag) {
  if (on_em_with_bounds(tag)) {
    return true;
  }
  if (tag.name_kind == 1 || tag.ranges.size() == 3) {
    return false;
  }
  if (!tag.ranges.empty() || !tag.is_global) {
    return true;
  }
  return tag.device != kMr && (tag.device != kLr || tag.name_kind == 3);
}

uint32_t unit_count(const TagDeclaration& tag) {
  if (tag.is_text_with_length()) {
    return static_cast<uint32_t>(tag.string_length);
  }
  if (tag.type->bits != 0) {
    return std::max(1U, tag.type->bits / kBitsPerWord);
  }
  return tag.type->kind == TypeKind::kText ? kTextWithoutLengthUnits : kOpaqueUnits;
}

std::optional<uint32_t> index_in_bounds(const TagDeclaration& tag, const std::vector<int64_t>& subscripts) {
  int64_t index = 0;
  for (size_t i = 0; i < subscripts.size(); ++i) {
    const Range& range = tag.ranges[i];
    if (subscripts[i] < range.low || subscripts[i] > range.high) {
      return std::nullopt;
    }
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

uint8_t lowest_free(const std::set<uint8_t>& taken) {
  unsigned number = 1;
  while (number < kMaxPrograms && taken.count(static_cast<uint8_t>(number)) != 0) {
    ++number;
  }
  return static_cast<uint8_t>(number);
}

}  // namespace

BitRoad bit_road_for(const TagDeclaration& tag) {
  const int words =
      (single_read_takes_word(tag) ? 1 : 0) + (batch_read_takes_word(tag) ? 1 : 0) + (write_takes_word(tag) ? 1 : 0);
  return words == 0 ? BitRoad::kBit : words == 3 ? BitRoad::kWord : BitRoad::kBoth;
}

std::string Variable::wire_name_of(uint32_t element) const {
  std::vector<int64_t> subscripts(tag.ranges.size());
  for (size_t i = tag.ranges.size(); i-- > 0;) {
    const auto extent = static_cast<uint32_t>(tag.ranges[i].extent());
    subscripts[i] = tag.ranges[i].low + static_cast<int64_t>(element % extent);
    element /= extent;
  }
  return tag.name + subscript_text(subscripts);
}

std::string Variable::qualified_name() const {
  const std::string name = strip_subscript_marks(tag.name);
  if (tag.is_global) {
    return name;
  }
  return (tag.program.empty() ? "#" + std::to_string(tag.program_number) : tag.program) + "/" + name;
}

std::vector<StoreProblem> VariableStore::declare(const std::vector<TagDeclaration>& tags,
                                                 const std::map<std::string, uint8_t>& program_numbers,
                                                 DirectoryOrder order) {
  number_programs(tags, program_numbers, order);
  std::vector<StoreProblem> problems;
  // Names that end in a subscript come last: they may name an element of an array declared further down.
  for (const bool with_subscript : {false, true}) {
    for (const TagDeclaration& tag : tags) {
      if ((tag.name.back() == ']') != with_subscript) {
        continue;
      }
      const std::string problem = declare_one(tag);
      if (!problem.empty()) {
        problems.push_back({tag.file, tag.line, problem});
      }
    }
  }
  return problems;
}

void VariableStore::number_programs(const std::vector<TagDeclaration>& tags,
                                    const std::map<std::string, uint8_t>& given, DirectoryOrder order) {
  std::vector<std::string> names;
  std::map<std::string, uint8_t> wanted;
  for (const TagDeclaration& tag : tags) {
    if (tag.is_global || tag.program.empty()) {
      continue;
    }
    if (std::find(names.begin(), names.end(), tag.program) == names.end()) {
      names.push_back(tag.program);
    }
    if (tag.program_number != 0) {
      wanted.emplace(tag.program, tag.program_number);
    }
  }
  std::set<uint8_t> taken;
  for (const auto& [name, number] : given) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      names.push_back(name);
    }
    program_numbers_[name] = number;
    taken.insert(number);
  }
  for (const std::string& name : names) {
    const auto wish = wanted.find(name);
    if (wish != wanted.end() && program_numbers_.count(name) == 0 && taken.insert(wish->second).second) {
      program_numbers_[name] = wish->second;
    }
  }
  for (const std::string& name : names) {
    if (program_numbers_.count(name) == 0) {
      program_numbers_[name] = lowest_free(taken);
      taken.insert(program_numbers_[name]);
    }
  }
  if (order == DirectoryOrder::kLongestFirst) {
    std::stable_sort(names.begin(), names.end(),
                     [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  }
  for (const std::string& name : names) {
    directory_.push_back({program_numbers_[name], name});
  }
}

std::string VariableStore::declare_one(const TagDeclaration& tag) {
  if (directory_.size() > kMaxPrograms) {
    return "more than 255 programs";
  }
  const auto program_units = utf16_from_utf8(tag.program);
  if (!program_units || program_units->size() > kMaxProgramNameUnits) {
    return "the program's name has more than 126 UTF-16 units";
  }
  const auto owner = program_numbers_.find(tag.program);
  const int program = tag.is_global                     ? kGlobalProgram
                      : owner != program_numbers_.end() ? owner->second
                                                        : tag.program_number;
  const ElementName parts = split_element_name(tag.name);
  const auto array = by_name_.find({program, parts.base});
  if (!parts.subscripts.empty() && array != by_name_.end() &&
      array->second->tag.ranges.size() == parts.subscripts.size() && tag.ranges.empty() && !tag.is_text_with_length() &&
      index_in_bounds(array->second->tag, parts.subscripts)) {
    const Variable& owner_array = *array->second;
    const bool same_road = owner_array.road == BitRoad::kBoth || owner_array.road == bit_road_for(tag);
    if (owner_array.tag.type == tag.type && (same_road || !owner_array.is_flag())) {
      return {};
    }
    return "an element of the array at " + declared_at(owner_array.tag) + " with another type or device";
  }
  const auto [entry, fresh] = by_name_.try_emplace(Key{program, tag.name}, nullptr);
  if (!fresh) {
    return same_declaration(entry->second->tag, tag) ? std::string{}
                                                     : "declared differently at " + declared_at(entry->second->tag);
  }
  auto variable = std::make_unique<Variable>();
  variable->tag = tag;
  variable->tag.program_number = static_cast<uint8_t>(program);
  variable->road = tag.type->bits == 1 ? bit_road_for(tag) : BitRoad::kBoth;
  variable->units = unit_count(tag);
  for (const Range& range : tag.ranges) {
    variable->elements *= static_cast<uint32_t>(range.extent());
  }
  const auto place = place_variable(*variable);
  if (!place) {
    by_name_.erase(entry);
    return "no room left in the memory of device " + device_name(tag.device);
  }
  variable->first = *place;
  variable->serial = next_serial_;
  next_serial_ += variable->elements;
  entry->second = variable.get();
  variables_.push_back(std::move(variable));
  return {};
}

std::optional<Place> VariableStore::place_variable(Variable& variable) {
  const uint8_t device = variable.tag.device;
  if (variable.is_flag()) {
    const Part part = variable.road == BitRoad::kWord ? Part::kBitWords : Part::kBitAddressed;
    if (!variable.is_array()) {
      return memory_.take_bit(device, part);
    }
    // Hosts take the bit of some one-dimensional arrays from the subscript itself.
    const int32_t low = variable.tag.ranges.size() == 1 ? variable.tag.ranges[0].low : 0;
    return memory_.take_bits(device, part, variable.elements, static_cast<uint32_t>(low) % kBitsPerWord);
  }
  auto place = variable.is_flag_like() ? memory_.take_bit_addressed_words(device, variable.elements * variable.units)
                                       : memory_.take_words(device, variable.elements * variable.units);
  if (place) {
    place->units = variable.units;
  }
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
  if (position < 0) {
    return std::nullopt;
  }
  Element element;
  element.variable = &variable;
  element.text_position = static_cast<uint32_t>(position);
  element.place = variable.first;
  // Behind the text's end every position is its last word: the length of the text itself bounds what moves.
  const uint32_t word = std::min(element.text_position / 2, variable.units - 1);
  element.place.word += word;
  element.place.units -= word;
  element.place.second_char = element.text_position % 2 != 0;
  if (element.text_position / 2 < variable.units) {
    element.index = 0;
  }
  return element;
}

std::optional<Element> VariableStore::resolve_array(Variable& variable, const std::vector<int64_t>& subscripts) {
  if (const auto index = index_in_bounds(variable.tag, subscripts)) {
    return Element{&variable, element_place(variable, *index), index, 0};
  }
  return std::nullopt;
}

std::optional<Element> VariableStore::resolve_outside(Variable& variable, const std::vector<int64_t>& subscripts) {
  const auto known = variable.outside.find(subscripts);
  if (known != variable.outside.end()) {
    return Element{&variable, known->second, std::nullopt, 0};
  }
  const uint8_t device = variable.tag.device;
  std::optional<Place> place;
  if (variable.is_flag()) {
    const Part part = variable.road == BitRoad::kWord ? Part::kBitWords : Part::kBitAddressed;
    place = memory_.take_bits(device, part, 1, static_cast<uint32_t>(subscripts.back()) % kBitsPerWord);
  } else {
    place = variable.is_flag_like() ? memory_.take_bit_addressed_words(device, variable.units)
                                    : memory_.take_words(device, variable.units);
  }
  if (!place) {
    return std::nullopt;
  }
  variable.outside.emplace(subscripts, *place);
  const Element element{&variable, *place, std::nullopt, 0};
  if (fill_new_elements_) {
    set_sentinel(memory_, element, next_serial_);
  }
  ++next_serial_;
  return element;
}

std::optional<Element> VariableStore::resolve(std::optional<uint8_t> program, const std::string& wire_name) {
  const ElementName parts = split_element_name(wire_name);
  Variable* array = parts.subscripts.empty() ? nullptr : find(program, parts.base);
  if (array != nullptr && array->is_text() && parts.subscripts.size() == 1) {
    return resolve_text(*array, parts.subscripts[0]);
  }
  const bool fits = array != nullptr && array->tag.ranges.size() == parts.subscripts.size();
  if (fits) {
    if (auto element = resolve_array(*array, parts.subscripts)) {
      return element;
    }
  }
  Variable* whole = find(program, wire_name);
  if (whole != nullptr && !whole->is_array() && !whole->is_text()) {
    return Element{whole, whole->first, 0, 0};
  }
  return fits ? resolve_outside(*array, parts.subscripts) : std::nullopt;
}

std::optional<Element> VariableStore::find_typed(const std::string& name) {
  const size_t slash = name.find('/');
  const std::string program = slash == std::string::npos ? "" : name.substr(0, slash);
  const std::string wire_name = mark_subscripts(slash == std::string::npos ? name : name.substr(slash + 1));
  std::vector<Element> found;
  for (const auto& variable : variables_) {
    const TagDeclaration& tag = variable->tag;
    const std::string owner = tag.program.empty() ? "#" + std::to_string(tag.program_number) : tag.program;
    if (slash != std::string::npos && (tag.is_global || owner != program)) {
      continue;
    }
    if (wire_name.compare(0, tag.name.size(), tag.name) != 0) {
      continue;
    }
    const std::string rest = wire_name.substr(tag.name.size());
    const auto subscripts = split_element_name("x" + rest).subscripts;
    if (rest.empty()) {
      found.insert(tag.is_global ? found.begin() : found.end(), Element{variable.get(), variable->first, 0, 0});
    } else if (variable->is_array() && subscripts.size() == tag.ranges.size()) {
      if (const auto element = resolve_array(*variable, subscripts)) {
        found.insert(tag.is_global ? found.begin() : found.end(), *element);
      } else if (variable->outside.count(subscripts) != 0) {
        found.push_back(Element{variable.get(), variable->outside.at(subscripts), std::nullopt, 0});
      }
    }
  }
  const bool is_clear = !found.empty() && (found.size() == 1 || found[0].variable->tag.is_global);
  return is_clear ? std::optional<Element>(found[0]) : std::nullopt;
}

}  // namespace plc_sim
