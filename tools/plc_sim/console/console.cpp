// The commands on standard input.
#include "tools/plc_sim/console/console.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "base/json_text.h"
#include "base/near_names.h"
#include "base/values/typed_value.h"
#include "tools/plc_sim/console/line_input.h"
#include "tools/plc_sim/variables/listing.h"
#include "tools/plc_sim/variables/mistake.h"
#include "tools/plc_sim/variables/values.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

std::pair<std::string, std::string> split_first_word(std::string_view line) {
  const size_t start = std::min(line.find_first_not_of(' '), line.size());
  line.remove_prefix(start);
  const size_t end = std::min(line.find(' '), line.size());
  const size_t rest = std::min(line.find_first_not_of(' ', end), line.size());
  return {std::string(line.substr(0, end)), std::string(line.substr(rest))};
}

const std::vector<std::string> kCommands{"set", "show", "dump", "counts", "fault", "faults", "report", "help", "quit"};

[[noreturn]] void fail(const std::string& reason) { throw Mistake(reason); }

// A replay knows frames alone.
void refuse_variables(const std::string& command) {
  if (command != "set" && command != "show" && command != "dump") return;
  fail(command + " needs variables, and a replay has none: what the capture holds is answered");
}

bool stands_alone(const std::string& command) { return command == "faults" || command == "help" || command == "quit"; }

// The command of this meaning, those with near names, or what helps when there is none.
std::string meant_command(const std::string& word) {
  constexpr std::pair<const char*, const char*> kElsewhere[] = {{"write", "set"}, {"read", "show"}, {"get", "show"},
                                                                {"list", "show"}, {"exit", "quit"}, {"end", "quit"}};
  for (const auto& [elsewhere, here] : kElsewhere) {
    if (word == elsewhere) return std::string("did you mean ") + here + "?";
  }
  const std::string near = plc_base::did_you_mean(word, kCommands);
  return near.empty() ? "help lists them" : near;
}

// The quote that closes the first one: the next that ends a word, and none behind a backslash in double quotes.
size_t closing_quote(std::string_view line) {
  const char quote = line.front();
  for (size_t i = 1; i < line.size(); ++i) {
    if (quote == '"' && line[i] == '\\') {
      ++i;
    } else if (line[i] == quote && (i + 1 == line.size() || line[i + 1] == ' ')) {
      return i;
    }
  }
  return std::string_view::npos;
}

// A name and what follows it. A name with blanks stands between quotes, 'Main /A' or "Main /A"; the double ones have
// the escapes of values.
std::pair<std::string, std::string> split_name(std::string_view line) {
  const bool is_quoted = !line.empty() && (line.front() == '\'' || line.front() == '"');
  const size_t close = is_quoted ? closing_quote(line) : std::string_view::npos;
  if (close == std::string_view::npos) return split_first_word(line);
  const std::string_view with_quotes = line.substr(0, close + 1);
  const size_t rest = std::min(line.find_first_not_of(' ', close + 1), line.size());
  if (line.front() == '\'') {
    return {std::string(with_quotes.substr(1, close - 1)), std::string(line.substr(rest))};
  }
  const plc_base::TypedText typed = plc_base::typed_text(with_quotes, with_quotes.size());
  if (!typed.problem.empty()) fail(typed.problem);
  return {typed.text, std::string(line.substr(rest))};
}

// A quote that ends no name: the blank in the name ended it.
void refuse_open_quote(std::string_view words, const char* example) {
  const bool is_quoted = !words.empty() && (words.front() == '\'' || words.front() == '"');
  if (!is_quoted || closing_quote(words) != std::string_view::npos) return;
  fail(std::string("the name begins with a quote that has no end: write ") + example);
}

}  // namespace

std::string Console::run(std::string_view line) {
  if (line.size() > kMostLineBytes) {
    return "error: a line has at most " + std::to_string(kMostLineBytes) + " bytes\n";
  }
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
  const auto [command, rest] = split_first_word(line);
  if (command.empty()) return {};
  try {
    if (!hooks_.has_variables) refuse_variables(command);
    return answer(command, rest) + "ok\n";
  } catch (const Mistake& bad) {
    return std::string("error: ") + bad.what() + "\n";
  }
}

std::string Console::answer(const std::string& command, const std::string& rest) {
  if (!rest.empty() && stands_alone(command)) {
    fail(command + " takes nothing" + (command == "faults" ? "; fault clear disarms them" : ""));
  }
  if (command == "set") return set(rest);
  if (command == "show") return show(rest);
  if (command == "dump") return dump(rest);
  if (command == "counts") return counts(rest);
  if (command == "fault") return fault(rest);
  if (command == "faults") return list_faults();
  if (command == "report") return hooks_.report(rest.empty() ? "text" : rest);
  if (command == "help") return help();
  if (command != "quit") {
    fail("no command is called '" + command + "'; " + meant_command(command));
  }
  hooks_.quit();
  return {};
}

std::string Console::set(const std::string& rest) {
  const auto [name, value] = split_name(rest);
  const auto element = store_.find_typed(name);
  const size_t equals = name.find('=');
  if (!element && equals != std::string::npos && store_.find_typed(name.substr(0, equals))) {
    fail("a blank stands between a name and its value: set " + name.substr(0, equals) + " " + name.substr(equals + 1));
  }
  if (!element) refuse_open_quote(rest, "set 'Main /A' VALUE");
  if (!element) refuse_name(name, rest);
  const bool is_text = element->variable->tag.type->kind == TypeKind::kText;
  if (value.empty()) {
    const std::string missing = "the value is missing: set " + typeable_name(name) + " VALUE";
    fail(is_text ? missing + ", or \"\" for an empty text" : missing);
  }
  const bool is_whole_array = element->variable->is_array() && mark_subscripts(name).back() != ']';
  const std::string problem =
      is_whole_array ? set_array(*element->variable, value) : set_value(store_.memory(), *element, value);
  if (!problem.empty()) fail(problem);
  return {};
}

// A name with blanks was cut at the first of them, where nothing quotes it.
void Console::refuse_name(const std::string& name, const std::string& rest) const {
  for (size_t end = rest.size(); end != std::string::npos && end > name.size(); end = rest.rfind(' ', end - 1)) {
    const std::string longer = rest.substr(0, end);
    if (longer.back() == ' ' || !store_.find_typed(longer)) continue;
    fail("a name with a blank stands between quotes: set " + typeable_name(longer) + " VALUE");
  }
  fail(store_.why_not_found(name));
}

// All elements or none.
std::string Console::set_array(Variable& variable, const std::string& list) {
  std::vector<size_t> extents;
  for (const Range& range : variable.tag.ranges) extents.push_back(static_cast<size_t>(range.extent()));
  const plc_base::TypedList typed = plc_base::typed_elements(list, extents);
  if (!typed.problem.empty()) return typed.problem;
  std::vector<Element> elements;
  for (uint32_t i = 0; i < variable.elements; ++i) {
    elements.push_back({&variable, store_.element_place(variable, i), i, 0});
  }
  return set_values(store_.memory(), elements, typed.elements);
}

std::string Console::show(const std::string& rest) {
  if (rest.empty()) {
    std::string all;
    for (const auto& variable : store_.variables()) all += list_variable(store_, *variable);
    return all;
  }
  const auto [first, more] = split_name(rest);
  const std::string name = more.empty() ? first : rest;
  const auto element = store_.find_typed(name);
  if (!element) refuse_open_quote(rest, "show 'Main /A'");
  if (!element) fail(store_.why_not_found(name));
  const Variable& variable = *element->variable;
  if (variable.is_array() && (name.back() != ']' || variable.tag.name.back() == ']')) {
    const bool names_variable = mark_subscripts(name).size() <= variable.tag.name.size() + name.find('/') + 1;
    if (name.back() != ']' || names_variable) return list_variable(store_, variable);
  }
  return shown_name(strip_subscript_marks(name)) + " = " + value_text(store_.memory(), *element) + "\n";
}

std::string Console::dump(const std::string& rest) const {
  if (rest == "--json") return plc_base::ascii_json_line(memory_json(store_));
  if (!rest.empty()) fail("dump takes nothing or --json");
  return list_memory(store_);
}

std::string Console::counts(const std::string& rest) const {
  nlohmann::ordered_json json;
  const Tally::Counts& counts = tally_.counts;
  json["connections"] = counts.connections;
  json["requests"] = counts.requests;
  json["violations"] = counts.violations;
  json["excused"] = counts.excused;
  json["refused"] = counts.refused;
  json["outside"] = counts.outside;
  json["notes"] = counts.notes;
  for (const FaultInfo& info : known_faults()) json[std::string("fault.") + info.name] = faults_.count_of(info.kind);
  if (rest == "--json") return plc_base::json_line(json);
  if (!rest.empty()) fail("counts takes nothing or --json");
  std::string text;
  for (const auto& [name, count] : json.items()) text += name + " " + count.dump() + "\n";
  return text;
}

std::string Console::fault(const std::string& rest) {
  const bool is_one_word = rest.find(' ') == std::string::npos;
  const bool is_known = std::any_of(known_faults().begin(), known_faults().end(),
                                    [&](const FaultInfo& info) { return rest == info.name; });
  const std::string near_clear = plc_base::did_you_mean(rest, {"clear"});
  if (is_one_word && !is_known && !near_clear.empty()) fail("no fault is called '" + rest + "'; " + near_clear);
  if (split_first_word(rest).first == "clear" && rest != "clear") fail("fault clear takes nothing: it disarms all");
  if (rest == "clear") {
    hooks_.clear_faults();
  } else if (!hooks_.arm(parse_fault(rest))) {
    fail(std::to_string(kMostArmedFaults) + " faults are armed, there is no room for more; fault clear disarms them");
  }
  return {};
}

std::string Console::list_faults() const {
  std::string text;
  for (const FaultInfo& info : known_faults()) {
    text += std::string(info.name) + (*info.arguments == '\0' ? "" : " ") + info.arguments + ": " + info.help + "\n";
  }
  for (const Fault& armed : faults_.armed()) text += "armed: " + describe(armed) + "\n";
  return text;
}

std::string Console::help() {
  return "set NAME[subscripts] VALUE   give a variable a value\n"
         "show [NAME[subscripts]]      show a variable, an element or everything\n"
         "dump [--json]                every word of the memory, or elements as JSON\n"
         "counts [--json]              requests, violations and faults so far\n"
         "fault NAME [ARGUMENTS] [times=N|always] [on=REQUEST] [after=N] [every=N]\n"
         "                             arm a fault; REQUEST is any, directory-start,\n"
         "                             directory, resolve, read, write, masked-write\n"
         "                             or bit\n"
         "fault clear                  disarm all faults, take connections again\n"
         "faults                       list the faults, and those that are armed\n"
         "report [text|json|csv]       what the hosts asked for\n"
         "quit                         end\n"
         "Local variables are called PROGRAM/NAME. A name with blanks stands between\n"
         "quotes: 'Main /A' or \"Main /A\".\n";
}

}  // namespace plc_sim
