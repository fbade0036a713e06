// Writes lines of tag files, and checks them as if somebody else had.
#include "new_tags.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <optional>
#include <utility>

#include "base/text.h"
#include "checker.h"
#include "form/csv_line.h"
#include "type_names.h"

namespace tag_check {
namespace {

// A name that every checked file can have.
constexpr const char* kFileName = "PLC1_0.csv";

bool fits_a_field(const std::string& text, bool is_name) {
  return !has_comma(text, is_name) && text.find_first_of("\r\n") == std::string::npos;
}

// The first text that would not stay in its column; null when all do.
const std::string* first_misfit(const NewTag& tag) {
  if (!fits_a_field(tag.name, true)) return &tag.name;
  for (const std::string* text : {&tag.type, &tag.ranges, &tag.length, &tag.scope, &tag.number, &tag.device}) {
    if (!fits_a_field(*text, false)) return text;
  }
  return nullptr;
}

Finding finding_on(const std::string& misfit, bool is_type, uint32_t place) {
  const std::string hint = is_type ? meant_type(misfit).hint : "";
  if (!hint.empty()) return {"T041", place, 1, plc_base::quoted(misfit) + " is not a type: " + hint, {}};
  const bool has_comma = misfit.find_first_of("\r\n") == std::string::npos;
  return {has_comma ? "T014" : "T028",
          place,
          1,
          plc_base::quoted(misfit) + (has_comma ? " contains a comma" : " contains a newline"),
          {}};
}

// What a new name or type cannot be, though a file that is there may have it; nothing for what it can.
std::optional<Finding> misplaced(const NewTag& tag) {
  const auto found = [&tag](const std::string& message) {
    Finding finding{"T020", tag.place, 1, message, {}};
    finding.has_remedy = true;
    return finding;
  };
  const std::string name(without_blanks(tag.name));
  const std::string type(without_blanks(tag.type));
  if (is_type(name) && !type.empty() && !is_like_type(type)) {
    return found(plc_base::quoted(name) + " is a type and " + plc_base::quoted(type) +
                 " is none: the name stands first, write " + type + " and then " + name);
  }
  const size_t open = name.rfind('[');
  if (open == std::string::npos || open == 0 || name.back() != ']') return std::nullopt;
  const std::string base(without_blanks(name.substr(0, open)));
  const std::string inner = name.substr(open + 1, name.size() - open - 2);
  if (without_blanks(inner).empty()) {
    return found(plc_base::quoted(name) + " has nothing between its brackets: write " + base +
                 ", with the ranges of an array beside it, as in 0..9");
  }
  if (base.size() == open) return std::nullopt;
  return found(plc_base::quoted(name) + " has a blank before its subscripts: write " + base + name.substr(open));
}

// As lists of variables say it in the place of a program, plc-host tags --csv too.
bool means_global(const std::string& scope) {
  std::string word(without_blanks(scope));
  for (char& sign : word) sign = static_cast<char>(std::tolower(static_cast<unsigned char>(sign)));
  return word == "global";
}

// Ranges and length out of the type, as far as they are not said already; no program for what is global.
NewTag taken_apart(const NewTag& tag) {
  NewTag apart = tag;
  apart.type = without_blanks(tag.type);
  if (const auto declared = declared_type(apart.type)) {
    const bool has_length = !declared->length.empty();
    const std::string& within = has_length ? declared->length : declared->ranges;
    std::string& beside = has_length ? apart.length : apart.ranges;
    if (beside.empty() || (has_length ? beside : ranges_of(beside)) == within) {
      apart.type = declared->type;
      beside = within;
    }
  }
  if (!apart.ranges.empty()) apart.ranges = ranges_of(apart.ranges);
  if (means_global(apart.scope)) {
    apart.scope.clear();
    apart.number = NewTag().number;
  }
  return apart;
}

std::string line_of(const NewTag& tag, uint32_t id) {
  std::string line = tag.name + "," + tag.type + "," + tag.ranges + "," + tag.length + ",,,," + std::to_string(id) +
                     (tag.scope.empty() ? ",1,0," : ",0,0,") + tag.number + "," + tag.scope;
  if (!tag.device.empty()) line += "," + tag.device;
  return line + "\n";
}

bool is_rule(const Finding& finding, const char* code) { return std::strcmp(finding.rule, code) == 0; }

size_t lines_in(std::string_view text) { return static_cast<size_t>(std::count(text.begin(), text.end(), '\n')); }

// Where the lines of a text come from: so many from a file, the others from these lines of a list.
struct Origins {
  const std::string& file;
  size_t lines_before;
  const std::vector<uint32_t>& places;
};

// The checker counts lines that the list does not have.
std::string already_declared(const Finding& finding, const Origins& origins) {
  const uint32_t line = finding.other_line;
  const size_t blanks = std::min(finding.message.find(" once the blanks"), finding.message.size());
  std::string text = "the variable is declared already";
  if (line > 0 && line <= origins.lines_before) text += ", in " + origins.file + ":" + std::to_string(line);
  if (line > origins.lines_before) {
    text += ", in line " + std::to_string(origins.places[line - origins.lines_before - 1]);
  }
  return text + (blanks < finding.message.size() ? "," : "") + finding.message.substr(blanks);
}

// "the program 'Main' of line 2 is ..." with the line where the list, or the file before it, has it.
std::string in_own_lines(const Finding& finding, const Origins& origins) {
  const std::string counted = "' of line " + std::to_string(finding.other_line) + " is the beginning of '";
  std::string message = finding.message;
  const size_t at = message.find(counted);
  if (at == std::string::npos) return message;
  const size_t line = finding.other_line;
  const std::string place = line <= origins.lines_before
                                ? origins.file + ":" + std::to_string(line)
                                : "line " + std::to_string(origins.places[line - origins.lines_before - 1]);
  return message.replace(at, counted.size(), "' of " + place + " is the beginning of '");
}

// Findings of lines behind these become findings of the variables.
void add_findings(const std::vector<Finding>& found, const Origins& origins, bool only_fixable,
                  std::vector<Finding>* findings) {
  const auto& [file, lines_before, places] = origins;
  for (const Finding& finding : found) {
    const size_t number = finding.line - lines_before;
    if (finding.line <= lines_before || number > places.size()) continue;
    if (only_fixable && !finding.is_fixable()) continue;
    findings->push_back(finding);
    findings->back().line = places[number - 1];
    findings->back().column = 1;
    findings->back().last_line = 0;
    if (is_rule(finding, "T110")) findings->back().message = already_declared(finding, origins);
    if (is_rule(finding, "T111")) findings->back().message = in_own_lines(finding, origins);
  }
}

}  // namespace

NewTagLines make_tag_lines(const std::vector<NewTag>& tags, const NewTagPlace& place) {
  NewTagLines made;
  std::vector<uint32_t> places;
  for (const NewTag& tag : tags) {
    if (std::optional<Finding> finding = misplaced(tag)) {
      made.findings.push_back(std::move(*finding));
      continue;
    }
    const NewTag apart = taken_apart(tag);
    if (const std::string* misfit = first_misfit(apart)) {
      made.findings.push_back(finding_on(*misfit, misfit == &apart.type, tag.place));
      continue;
    }
    made.text += line_of(apart, place.first_id + static_cast<uint32_t>(places.size()));
    places.push_back(tag.place);
  }
  add_findings(check_text(kFileName, made.text, {}), {place.name, 0, places}, true, &made.findings);
  size_t corrections = 0;
  made.text = corrected_text(kFileName, made.text, {}, &corrections);
  const std::string all = std::string(place.before) + made.text;
  std::vector<Finding> found = check_text(kFileName, all, {});
  // A line for which nobody said where it goes has the number that was asked for.
  const bool is_anywhere = place.before.empty() && place.first_id > 0;
  found.erase(std::remove_if(found.begin(), found.end(),
                             [&](const Finding& finding) { return is_anywhere && is_rule(finding, "T064"); }),
              found.end());
  add_findings(found, {place.name, lines_in(place.before), places}, false, &made.findings);
  return made;
}

}  // namespace tag_check
