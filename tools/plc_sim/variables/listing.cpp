// What the controller holds, written out.
#include "tools/plc_sim/variables/listing.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "tools/plc_sim/variables/values.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

constexpr size_t kWordsPerLine = 16;
constexpr std::array<const char*, 3> kPartNames{"bits", "bit-words", "values"};

std::string subscripts_of(const Variable& variable, uint32_t index) {
  return variable.wire_name_of(index).substr(variable.tag.name.size());
}

// Until visit has seen enough and returns false.
template <typename Visit>
void visit_elements(const VariableStore& store, Variable& variable, Visit visit) {
  for (uint32_t i = 0; i < variable.elements; ++i) {
    if (!visit(subscripts_of(variable, i), Element{&variable, store.element_place(variable, i), i, 0})) return;
  }
  for (const auto& [subscripts, place] : variable.outside) {
    if (!visit(subscript_text(subscripts), Element{&variable, place, std::nullopt, 0})) return;
  }
}

template <typename Visit>
void for_each_element(const VariableStore& store, Variable& variable, Visit visit) {
  visit_elements(store, variable, [&](const std::string& subscripts, const Element& element) {
    visit(subscripts, element);
    return true;
  });
}

// Whether the part can be in the name of an element; what is in no subscript is in the name of all of them or none.
bool may_contain(const Variable& variable, const std::string& part) {
  const bool may_be_subscript = variable.is_array() && part.find_first_of("[],-0123456789") != std::string::npos;
  return may_be_subscript || variable.qualified_name().find(part) != std::string::npos;
}

void append_words(std::string& out, unsigned bank, const char* part, const Memory::Words& words) {
  for (size_t at = 0; at < words.size(); at += kWordsPerLine) {
    std::array<char, 48> head{};
    std::snprintf(head.data(), head.size(), "%02x %s %06zx:", bank, part, at);
    out += head.data();
    for (size_t i = at; i < std::min(at + kWordsPerLine, words.size()); ++i) {
      std::array<char, 8> word{};
      std::snprintf(word.data(), word.size(), " %04x", static_cast<unsigned>(words[i]));
      out += word.data();
    }
    out += '\n';
  }
}

}  // namespace

std::string element_text(const Variable& variable, const std::string& subscripts) {
  return variable.qualified_name() + strip_subscript_marks(subscripts);
}

std::string list_variable(const VariableStore& store, const Variable& variable) {
  std::string out;
  // Elements carry their variable as something that can be changed; a listing changes none.
  for_each_element(store, const_cast<Variable&>(variable), [&](const std::string& subscripts, const Element& element) {
    out += shown_name(element_text(variable, subscripts)) + " = " + value_text(store.memory(), element) + "\n";
  });
  return out;
}

Listed list_elements(const VariableStore& store, const std::string& part, size_t limit) {
  constexpr size_t kMostExamined = 100000;  // names made for one answer: whoever searches holds up nobody
  Listed listed;
  size_t examined = 0;
  for (const auto& variable : store.variables()) {
    if (listed.has_more) break;
    if (!may_contain(*variable, part)) continue;
    visit_elements(store, *variable, [&](const std::string& subscripts, const Element& element) {
      const std::string name = element_text(*variable, subscripts);
      const bool is_wanted = name.find(part) != std::string::npos;
      listed.has_more = ++examined > kMostExamined || (is_wanted && listed.elements.size() >= limit);
      if (is_wanted && !listed.has_more) {
        listed.elements.push_back({name, variable->tag.type->name, value_text(store.memory(), element)});
      }
      return !listed.has_more;
    });
  }
  return listed;
}

std::string list_memory(const VariableStore& store) {
  std::string out;
  for (const auto& [number, bank] : store.memory().banks()) {
    for (size_t part = 0; part < kPartNames.size(); ++part) {
      append_words(out, number, kPartNames[part], bank.parts[part]);
    }
  }
  return out;
}

nlohmann::json memory_json(const VariableStore& store) {
  nlohmann::json elements = nlohmann::json::array();
  for (const auto& variable : store.variables()) {
    const TagDeclaration& tag = variable->tag;
    for_each_element(store, *variable, [&](const std::string& subscripts, const Element& element) {
      // A list of pairs would copy each of them twice.
      nlohmann::json& shown = elements.emplace_back(nlohmann::json::object());
      shown.emplace("name", strip_subscript_marks(tag.name + subscripts));
      shown.emplace("variable", strip_subscript_marks(tag.name));
      shown.emplace("program", tag.is_global ? nlohmann::json() : nlohmann::json(tag.program));
      shown.emplace("type", tag.type->name);
      shown.emplace("device", device_name(tag.device));
      shown.emplace("declared", element.index.has_value());
      shown.emplace("value", value_json(store.memory(), element));
      shown.emplace("raw", raw_text(store.memory(), element));
    });
  }
  return {{"elements", std::move(elements)}};
}

}  // namespace plc_sim
