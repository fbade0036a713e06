// Makes the list of the variables that are polled, and gives commands the types of their variables.
#include "tools/plc_gateway/config/name_list.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "base/near_names.h"
#include "base/text.h"
#include "base/utf8.h"
#include "tools/plc_gateway/config/data_types.h"
#include "tools/plc_gateway/config/section.h"
#include "tools/plc_gateway/sparkplug/topics.h"

namespace plc_gateway {
namespace {

using plc_client::Controller;
using plc_client::Declaration;
using plc_client::Plan;
using plc_client::Reading;

// A name as a variable of the gateway, or why it cannot be one.
struct Looked {
  Variable variable;
  std::string problem;
};

constexpr size_t kMostTold = 20;  // names in the notes on one entry

bool is_glob(const std::string& name) { return name.find_first_of("*?") != std::string::npos; }

// "2 of the 9 variables that * fits are"
std::string part_that_fits(size_t count, size_t all, const std::string& glob) {
  return std::to_string(count) + " of the " + plc_base::plural(all, "variable") + " that " + glob + " fits " +
         (count > 1 ? "are" : "is");
}

// Why messages cannot carry the name; empty when they can.
std::string name_problem(const std::string& name, bool has_json_form) {
  if (!plc_base::is_utf8(name)) {
    return name + " is not UTF-8, which the standard's texts are: save its tag file as UTF-8";
  }
  const std::string problem = has_json_form ? name_in_topic_problem(name) : std::string();
  return problem.empty() ? std::string() : name + " " + problem + ", and [json] makes a topic of the name";
}

Looked look_up(Controller& controller, const std::string& name, bool has_json_form) {
  Looked looked;
  try {
    Plan plan = controller.plan({name});
    const bool is_readable = plan.exchanges() > 0;
    // What no request can ask for is read without one: the reading says why.
    const Reading& reading = is_readable ? plan.readings().front() : controller.read(plan).front();
    looked.variable.name = reading.name;
    looked.variable.declared_type = reading.type;
    looked.variable.shape = reading.value.shape();
    looked.problem = name_problem(reading.name, has_json_form);
    if (!looked.problem.empty()) return looked;
    if (!is_readable) {
      looked.problem = name + " cannot be read: " + reading.error.text;
      return looked;
    }
    const std::optional<DataType> type = data_type_of(reading.type, reading.value.is_array());
    if (type) {
      looked.variable.type = *type;
    } else {
      looked.problem = name + " is declared " + reading.type + ", which cannot be published";
    }
  } catch (const plc_client::Error& error) {
    looked.problem = error.what();
  }
  return looked;
}

class NameLookUp {
 public:
  NameLookUp(Draft& draft, Controller& controller, Findings& findings)
      : draft_(draft), controller_(controller), findings_(findings) {}

  void polls();
  void commands();

 private:
  // What one entry of a list of names brought.
  struct Entry {
    size_t found = 0;
    size_t of_earlier_groups = 0;
    std::string first_of_earlier;
    size_t earlier_group = 0;
    std::vector<std::string> left_out;  // each with its reason
    std::vector<std::string> valueless;
  };

  void take_glob(const PlacedText& name, size_t group);
  void take_name(const PlacedText& name, size_t group);
  void add(Variable variable, size_t group, Entry& entry);
  void tell(const PlacedText& name, const Entry& entry);
  void tell_left_out(const PlacedText& name, const Entry& entry);
  void tell_valueless(const PlacedText& name, const Entry& entry);
  std::string near_of(const std::string& glob);
  bool has_json_form() const { return !draft_.config.json_topic.empty(); }
  void command(size_t number);
  void check_limits(const CommandRule& rule, const CommandDraft& draft);

  Draft& draft_;
  Controller& controller_;
  Findings& findings_;
  std::map<std::string, size_t> known_;  // the index of a polled name
  std::set<std::string> left_out_;
  std::map<std::string, Place> commanded_;  // names of commands
};

void NameLookUp::add(Variable variable, size_t group, Entry& entry) {
  ++entry.found;
  if (variable.type == DataType::kBytes) entry.valueless.push_back(variable.name);
  std::vector<Variable>& variables = draft_.config.variables;
  const auto [known, is_new] = known_.emplace(variable.name, variables.size());
  if (is_new) {
    variable.group = group;
    variable.deadband = draft_.config.polls[group].deadband;
    variables.push_back(std::move(variable));
    return;
  }
  const size_t other = variables[known->second].group;
  if (other == group) return;
  if (entry.of_earlier_groups++ > 0) return;
  entry.first_of_earlier = variable.name;
  entry.earlier_group = other;
}

void NameLookUp::tell(const PlacedText& name, const Entry& entry) {
  if (entry.of_earlier_groups > 0) {
    const std::string line = ", in line " + std::to_string(draft_.polls[entry.earlier_group].place.line);
    findings_.note(name.place,
                   entry.first_of_earlier == name.text
                       ? name.text + " belongs to an earlier group" + line + ", and is polled as often as that says"
                       : name.text + " fits variables of earlier groups, which are polled as often as those say: " +
                             std::to_string(entry.of_earlier_groups) + " of " + std::to_string(entry.found) +
                             ", the first is " + entry.first_of_earlier + ", of the group" + line.substr(1));
  }
  tell_left_out(name, entry);
  tell_valueless(name, entry);
}

void NameLookUp::tell_left_out(const PlacedText& name, const Entry& entry) {
  const size_t count = entry.left_out.size();
  if (count == 0) return;
  const std::string said = part_that_fits(count, entry.found + count, name.text) + " left out";
  if (count == 1) return findings_.note(name.place, said + ": " + entry.left_out.front());
  findings_.note(name.place, said);
  for (size_t i = 0; i < std::min(count, kMostTold); ++i) {
    findings_.note(name.place, "left out: " + entry.left_out[i]);
  }
  if (count > kMostTold) findings_.note(name.place, "left out: " + std::to_string(count - kMostTold) + " more");
}

// The births have them, and each reading fails.
void NameLookUp::tell_valueless(const PlacedText& name, const Entry& entry) {
  const size_t count = entry.valueless.size();
  if (count == 0) return;
  const bool is_pattern = is_glob(name.text);
  const size_t all = entry.found + entry.left_out.size();
  std::string said = is_pattern ? part_that_fits(count, all, name.text) : name.text + " is";
  said += " published without a value, because the driver cuts what a type without a width holds";
  for (size_t i = 0; is_pattern && i < std::min(count, kMostTold); ++i) {
    said.append(i > 0 ? ", " : ": ").append(entry.valueless[i]);
  }
  if (count > kMostTold) said += " and " + std::to_string(count - kMostTold) + " more";
  findings_.note(name.place, said + (count > 1 ? "; declare types with a width, or take them out of the list"
                                               : "; declare a type with a width, or take it out of the list"));
}

// A pattern is seldom as long as what it was to fit: what stands before its first sign is compared with beginnings.
std::string NameLookUp::near_of(const std::string& glob) {
  const std::string start = glob.substr(0, glob.find_first_of("*?.[/"));
  std::vector<std::string> beginnings;
  for (const Declaration& declaration : controller_.tags()) {
    beginnings.push_back(declaration.name.substr(0, declaration.name.find_first_of(".[/")));
  }
  const std::vector<std::string> near = plc_base::near_names(start, beginnings);
  return near.empty() ? "" : "; there are names that begin with " + plc_base::joined_with_or(near);
}

void NameLookUp::take_glob(const PlacedText& name, size_t group) {
  Entry entry;
  std::vector<std::string> names;
  for (const Declaration& declaration : controller_.tags()) {
    if (fits_glob(name.text, declaration.name)) names.push_back(declaration.name);
  }
  for (const std::string& fitting : names) {
    Looked looked = look_up(controller_, fitting, has_json_form());
    if (looked.problem.empty()) {
      add(std::move(looked.variable), group, entry);
    } else {
      entry.left_out.push_back(std::move(looked.problem));
      left_out_.insert(fitting);
    }
  }
  tell(name, entry);
  if (names.empty()) {
    findings_.error(name.place, name.text + " fits no declared variable" + near_of(name.text) +
                                    "; * is any characters, ? is one, and brackets stand for themselves");
  } else if (entry.found == 0) {
    findings_.error(name.place, name.text + " fits no variable that can be published: take it out of the list");
  }
}

void NameLookUp::take_name(const PlacedText& name, size_t group) {
  Looked looked = look_up(controller_, name.text, has_json_form());
  if (!looked.problem.empty()) {
    const bool has_remedy = looked.problem.find("did you mean") != std::string::npos;
    findings_.error(name.place, looked.problem + (has_remedy ? "" : "; correct the name, or take it out of the list"));
    return;
  }
  Entry entry;
  add(std::move(looked.variable), group, entry);
  tell(name, entry);
}

void NameLookUp::polls() {
  for (size_t group = 0; group < draft_.polls.size(); ++group) {
    for (const PlacedText& name : draft_.polls[group].names) {
      if (is_glob(name.text)) {
        take_glob(name, group);
      } else {
        take_name(name, group);
      }
    }
  }
  draft_.config.left_out = left_out_.size();
}

void NameLookUp::check_limits(const CommandRule& rule, const CommandDraft& draft) {
  const NumberRange range = range_of(rule.type);
  const auto check = [&](const char* key, const std::optional<double>& limit, Place place) {
    if (!limit) return;
    if (!is_number(rule.type)) {
      findings_.error(place, "[[command]] " + std::string(key) + " is for numbers, and " + rule.name + " is declared " +
                                 rule.declared_type + ": remove it");
    } else if (*limit < range.low || *limit > range.high) {
      findings_.error(place, "[[command]] " + std::string(key) + " is " + number_text(*limit) + ", and " + rule.name +
                                 ", declared " + rule.declared_type + ", holds " + number_text(range.low) + " to " +
                                 number_text(range.high) + ": give a limit within these, or none");
    }
  };
  check("min", rule.min, draft.min);
  check("max", rule.max, draft.max);
}

void NameLookUp::command(size_t number) {
  CommandRule& rule = draft_.config.commands[number];
  const CommandDraft& draft = draft_.commands[number];
  Looked looked = look_up(controller_, rule.name, has_json_form());
  if (looked.problem.empty() && looked.variable.type == DataType::kBytes) {
    looked.problem = rule.name + " is declared " + looked.variable.declared_type + ", which the driver does not write";
  }
  if (!looked.problem.empty()) {
    const bool has_remedy = looked.problem.find("did you mean") != std::string::npos;
    findings_.error(draft.name.place, looked.problem + (has_remedy ? "" : "; correct the name, or remove the command"));
    return;
  }
  rule.name = looked.variable.name;
  rule.declared_type = looked.variable.declared_type;
  rule.type = looked.variable.type;
  rule.shape = looked.variable.shape;
  const auto [first, is_new] = commanded_.emplace(rule.name, draft.name.place);
  if (!is_new) {
    findings_.error(draft.name.place, rule.name + " has a command already, in line " +
                                          std::to_string(first->second.line) + ": keep one of them");
  }
  check_limits(rule, draft);
  if (known_.count(rule.name) == 0) {
    findings_.note(draft.name.place, rule.name +
                                         " is in no [[poll]]: it can be written, but no host sees it in the "
                                         "birth, nor its value");
  }
}

void NameLookUp::commands() {
  for (size_t i = 0; i < draft_.commands.size(); ++i) command(i);
}

}  // namespace

void look_names_up(Draft& draft, Controller& controller, Findings& findings) {
  NameLookUp look_up(draft, controller, findings);
  look_up.polls();
  look_up.commands();
}

bool fits_glob(std::string_view pattern, std::string_view name) {
  size_t at = 0;
  size_t star = std::string_view::npos;  // the last one, and where the name goes on behind what it stands for
  size_t behind_star = 0;
  for (size_t i = 0; i < name.size();) {
    if (at < pattern.size() && pattern[at] == '*') {
      star = at++;
      behind_star = i;
    } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == name[i])) {
      ++at;
      ++i;
    } else if (star != std::string_view::npos) {
      at = star + 1;
      i = ++behind_star;
    } else {
      return false;
    }
  }
  while (at < pattern.size() && pattern[at] == '*') ++at;
  return at == pattern.size();
}

}  // namespace plc_gateway
