// Tag files and values of plc-sim: what a text declares, where it lies, how names lead to it, and values as text.
#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"
#include "tag_words.h"
#include "tools/plc_sim/variables/listing.h"
#include "tools/plc_sim/variables/tag_reader.h"
#include "tools/plc_sim/variables/values.h"
#include "tools/plc_sim/variables/variables.h"

namespace {

using fuzz::demand;
using plc_sim::Element;
using plc_sim::Memory;
using plc_sim::TagDeclaration;
using plc_sim::TagFile;
using plc_sim::Variable;
using plc_sim::VariableStore;

constexpr const char* kValues[] = {"true",
                                   "false",
                                   "0x",
                                   "FFFF",
                                   "-",
                                   "1.5",
                                   "nan",
                                   "1e400",
                                   "-inf",
                                   "18446744073709551615",
                                   "-9223372036854775808",
                                   "-128",
                                   "256",
                                   "65535",
                                   "text \\",
                                   "\x1B[2J",
                                   "\xC3\xA4",
                                   "0"};

size_t line_count(const std::string& text) {
  const auto ended = static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
  return ended + (text.empty() || text.back() == '\n' ? 0 : 1);
}

int64_t element_count(const TagDeclaration& tag) {
  int64_t count = 1;
  for (const plc_sim::Range& range : tag.ranges) count *= range.extent();
  return count;
}

void judge_file(const std::string& text, const TagFile& file) {
  size_t bad = 0;
  for (const plc_sim::TagProblem& problem : file.problems) bad += problem.is_warning ? 0 : 1;
  demand(file.tags.size() + bad == line_count(text), "each line is a declaration or a problem");
  for (const TagDeclaration& tag : file.tags) {
    demand(!tag.name.empty() && tag.type != nullptr && tag.ranges.size() <= 3, "a declaration is whole");
    demand(element_count(tag) >= 1 && element_count(tag) <= 1 << 20, "a declaration has elements, and not too many");
    demand(plc_sim::find_type(tag.type->name) == tag.type, "a type has its name");
  }
}

void judge_value(Memory& memory, const Element& element, const std::string& text) {
  const std::string before = plc_sim::raw_text(memory, element);
  if (!plc_sim::set_value(memory, element, text).empty()) {
    demand(plc_sim::raw_text(memory, element) == before, "a value that is refused changes nothing");
    return;
  }
  const std::string raw = plc_sim::raw_text(memory, element);
  const std::string shown = plc_sim::value_text(memory, element);
  demand(fuzz::is_shown(shown), "a value is shown text");
  const nlohmann::json json = plc_sim::value_json(memory, element);
  const bool is_text = element.variable->tag.type->kind == plc_sim::TypeKind::kText;
  if (is_text) {
    const bool shows_bytes = shown.find("\\x") != std::string::npos;  // as what is no UTF-8 does
    demand(json.is_string() || (json.is_null() && shows_bytes), "a text has its JSON, unless it is no UTF-8");
  } else {
    demand(!json.is_null(), "a value has its JSON");
  }
  if (is_text || shown.find("nan") != std::string::npos) return;
  demand(plc_sim::set_value(memory, element, shown).empty(), "what is shown can be set");
  demand(plc_sim::raw_text(memory, element) == raw, "what is shown is the value");
}

void judge_variable(VariableStore& store, Variable& variable, const std::string& value) {
  const auto number = variable.tag.program_number;
  const auto program = variable.tag.is_global ? std::nullopt : std::optional<uint8_t>(number);
  for (const uint32_t index : {uint32_t{0}, variable.elements - 1}) {
    const std::string name = variable.wire_name_of(index);
    const auto found = store.resolve(program, name);
    demand(variable.is_text() || found.has_value(), "the name of an element leads somewhere");
    const Element element{&variable, store.element_place(variable, index), index, 0};
    judge_value(store.memory(), element, value);
    plc_sim::set_sentinel(store.memory(), element, index);
    plc_sim::animate_value(store.memory(), element, index);
    store.find_typed(variable.qualified_name());
  }
  if (variable.is_text()) {
    demand(store.resolve(program, variable.tag.name + "[#3]").has_value(), "a text has positions");
  }
  if (variable.is_array() && store.resolve(program, variable.tag.name + "[#70000]")) {
    const auto again = store.resolve(program, variable.tag.name + "[#70000]");
    demand(again.has_value() && !again->index, "an element outside the bounds stays where it is");
  }
  const auto handle = plc_sim::handle_of(variable.first);
  const auto place = plc_sim::place_of(handle);
  demand(place && place->bank == variable.first.bank && place->word == variable.first.word, "a handle leads back");
  store.other_scope_of(program, variable.tag.name);
  store.program_text(number);
}

void judge_listing(const VariableStore& store, uint8_t choice) {
  constexpr size_t kMost = 5;
  const plc_sim::Listed listed = plc_sim::list_elements(store, choice % 2 == 0 ? "" : "S", kMost);
  demand(listed.elements.size() <= kMost, "so many elements at most");
  if (choice % 8 == 0) plc_sim::list_memory(store);
  if (choice % 8 == 1) demand(plc_sim::memory_json(store)["elements"].is_array(), "elements as JSON");
  if (choice % 8 == 2) {
    for (const auto& variable : store.variables()) {
      const std::string text = plc_sim::list_variable(store, *variable);
      demand(std::count(text.begin(), text.end(), '\n') >= static_cast<std::ptrdiff_t>(variable->elements),
             "a line for each element");
    }
  }
}

}  // namespace

// A value, then a zero byte, then the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  constexpr int64_t kMostElements = 70000;  // of all: what is made must be forgotten again
  constexpr int64_t kMostListed = 64;
  constexpr size_t kMostTried = 2;
  fuzz::Input input(bytes, length);
  const uint8_t choice = input.byte();
  const std::string rest = input.text();
  const size_t end = std::min(rest.find('\0'), rest.size());
  const std::string value = fuzz::spelled(std::string_view(rest).substr(0, end), kValues);
  const std::string text =
      fuzz::spelled(std::string_view(rest).substr(std::min(end + 1, rest.size())), fuzz::kTagWords);
  const TagFile file = plc_sim::read_tag_text("tags", text);
  judge_file(text, file);
  int64_t elements = 0;
  for (const TagDeclaration& tag : file.tags) {
    plc_sim::device_name(tag.device);
    elements += element_count(tag) * (tag.type->bits == 1 ? 1 : 8);
  }
  if (elements > kMostElements) return 0;
  VariableStore store;
  store.fill_new_elements_with_sentinels((choice & 0x40U) != 0);
  std::map<std::string, uint8_t> programs;
  if ((choice & 0x80U) != 0) programs = {{"MAIN", 7}, {"OTHER", 1}};
  const auto order = (choice & 0x20U) != 0 ? plc_sim::DirectoryOrder::kFile : plc_sim::DirectoryOrder::kLongestFirst;
  const auto problems = store.declare(file.tags, programs, order);
  demand(store.variables().size() + problems.size() <= file.tags.size(), "no declaration counts twice");
  for (size_t i = 0; i < std::min(store.variables().size(), kMostTried); ++i) {
    judge_variable(store, *store.variables()[i], value);
  }
  if (elements <= kMostListed && (choice & 0x10U) != 0) judge_listing(store, choice);
  return 0;
}
