// Takes a profile's text apart.
#include <cmath>
#include <string>
#include <type_traits>

#include "base/files.h"
#include "base/near_names.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "base/toml/toml_text.h"
#include "profile/profile_file.h"
#include "profile/profile_keys.h"

namespace plc_profile {
namespace {

using plc_toml::Findings;
using plc_toml::form_of;
using plc_toml::place_of;

constexpr size_t kMostFileBytes = size_t{1} << 20U;

std::string head_of(const std::string& section) {
  return section == kRefusedSection ? "[[" + section + "]]" : "[" + section + "]";
}

std::string meant_or_all(const std::string& word, const std::vector<std::string>& known, const std::string& all) {
  const std::string meant = plc_base::did_you_mean(word, known);
  return meant.empty() ? all + plc_base::joined_with_or(known) : meant;
}

std::vector<std::string> section_names() {
  std::vector<std::string> names;
  for (const KeyRow& row : key_rows()) {
    if (names.empty() || names.back() != row.section) names.emplace_back(row.section);
  }
  names.emplace_back(kRefusedSection);
  return names;
}

std::vector<std::string> keys_in(const std::string& section) {
  if (section == kRefusedSection) return {"name", "program", "what", "shape", "status"};
  std::vector<std::string> names;
  for (const KeyRow& row : key_rows()) {
    if (section == row.section) names.emplace_back(row.name);
  }
  return names;
}

// Of a key that stands once for each refused variable, and in none of the profile's own places.
KeyRow row_of_refused(const char* key) { return {kRefusedSection, key, "", {}, 0, UINT16_MAX}; }

const KeyRow* find_row(const std::string& section, const std::string& key) {
  for (const KeyRow& row : key_rows()) {
    if (section == row.section && key == row.name) return &row;
  }
  return nullptr;
}

class ProfileParser {
 public:
  ProfileParser(Profile& profile, Findings& findings) : profile_(profile), findings_(findings) {}

  void take(const toml::table& table) {
    for (const auto& [key, node] : table) take_section(std::string(key.str()), key.source(), node);
  }

 private:
  void take_section(const std::string& section, const toml::source_region& source, const toml::node& node) {
    if (keys_in(section).empty()) {
      findings_.error(place_of(source), "unknown section " + plc_base::quoted(section) + "; " +
                                            meant_or_all(section, section_names(), "there are "));
    } else if (section == kRefusedSection) {
      take_refused(node);
    } else if (!node.is_table()) {
      findings_.error(place_of(node.source()),
                      section + " is " + form_of(node) + ": write " + head_of(section) + ", its keys below it");
    } else {
      for (const auto& [key, value] : *node.as_table()) take_key(section, key, value);
    }
  }

  void take_refused(const toml::node& node) {
    if (!node.is_array_of_tables()) {
      findings_.error(place_of(node.source()), "refused is " + form_of(node) + ": write " + head_of(kRefusedSection) +
                                                   " for each variable, its name below it");
      return;
    }
    for (const toml::node& element : *node.as_array()) take_refused_variable(*element.as_table());
  }

  void take_refused_variable(const toml::table& table) {
    Profile::Refused refused;
    for (const auto& [key, value] : table) take_refused_key(key, value, refused);
    if (refused.name.empty()) {
      findings_.error(place_of(table.source()), head_of(kRefusedSection) + " has no name: write name = \"Speed\"");
    }
    if (refused.what == Profile::Refused::What::kName && (refused.shape || refused.status)) {
      findings_.error(place_of(table.source()), head_of(kRefusedSection) +
                                                    " has a shape or status of its own, which only a refused value "
                                                    "has: write what = \"value\"");
    }
    profile_.refused.push_back(refused);
  }

  void take_refused_key(const toml::key& key, const toml::node& value, Profile::Refused& refused) {
    const std::string name(key.str());
    if (name == "name") {
      take_text(head_of(kRefusedSection) + " name", value, refused.name);
    } else if (name == "program") {
      take_text(head_of(kRefusedSection) + " program", value, refused.program);
    } else if (name == "what") {
      refused.what = word_in<Profile::Refused::What>(row_of_refused("what"), value).value_or(refused.what);
    } else if (name == "shape") {
      refused.shape = word_in<Profile::Shape>(row_of_refused("shape"), value);
    } else if (name == "status") {
      take_integer(row_of_refused("status"), value, refused.status);
    } else {
      tell_unknown_key(kRefusedSection, key);
    }
  }

  void tell_unknown_key(const std::string& section, const toml::key& key) {
    const std::string word(key.str());
    findings_.error(place_of(key.source()), "unknown key " + plc_base::quoted(word) + " in " + head_of(section) + "; " +
                                                meant_or_all(word, keys_in(section), "it takes "));
  }

  void take_key(const std::string& section, const toml::key& key, const toml::node& node) {
    const KeyRow* row = find_row(section, std::string(key.str()));
    if (row == nullptr) return tell_unknown_key(section, key);
    std::visit([&](auto slot) { take_value(*row, node, slot); }, row->slot);
  }

  static std::string called(const KeyRow& row) { return head_of(row.section) + " " + row.name; }

  void wrong(const std::string& name, const toml::node& node, const std::string& wanted) {
    findings_.error(place_of(node.source()), name + " is " + form_of(node) + ": give " + wanted);
  }

  void take_text(const std::string& name, const toml::node& node, std::string& text) {
    if (!node.is_string()) return wrong(name, node, "a text in double quotes");
    text = **node.as_string();
  }

  static std::string range_of(const KeyRow& row) {
    return "from " + std::to_string(row.low) + " to " + std::to_string(row.high);
  }

  void take_value(const KeyRow& row, const toml::node& node, std::string Profile::*slot) {
    take_text(called(row), node, profile_.*slot);
  }

  void take_value(const KeyRow& row, const toml::node& node, std::optional<double> Profile::*slot) {
    take_decimal(row, node, profile_.*slot);
  }

  void take_value(const KeyRow& row, const toml::node& node, PacePart slot) {
    take_decimal(row, node, profile_.*slot.pace.*slot.part);
  }

  void take_decimal(const KeyRow& row, const toml::node& node, std::optional<double>& slot) {
    const std::optional<double> number = node.is_number() ? node.value<double>() : std::nullopt;
    const bool is_within = number && *number >= row.low && *number <= row.high;  // not a number is in no range
    if (!is_within) return wrong(called(row), node, "a number of milliseconds " + range_of(row));
    slot = *number == 0 ? 0 : *number;  // a zero with a minus would be written as an integer, and lose it
  }

  void take_value(const KeyRow& row, const toml::node& node, Profile::Guarded Profile::*slot) {
    if (const auto word = word_in<Profile::Guarded>(row, node)) profile_.*slot = *word;
  }

  template <typename Value>
  void take_value(const KeyRow& row, const toml::node& node, std::optional<Value> Profile::*slot) {
    if constexpr (std::is_enum_v<Value> || std::is_same_v<Value, bool>) {
      if (const auto word = word_in<Value>(row, node)) profile_.*slot = *word;
    } else {
      take_integer(row, node, profile_.*slot);
    }
  }

  template <typename Value>
  void take_integer(const KeyRow& row, const toml::node& node, std::optional<Value>& slot) {
    const bool is_within =
        node.is_integer() && **node.as_integer() >= row.low && **node.as_integer() <= int64_t{row.high};
    if (!is_within) return wrong(called(row), node, "an integer " + range_of(row));
    slot = static_cast<Value>(**node.as_integer());
  }

  template <typename Word>
  std::optional<Word> word_in(const KeyRow& row, const toml::node& node) {
    const Words& words = words_of(Word{});
    for (size_t i = 0; node.is_string() && i < words.size(); ++i) {
      if (**node.as_string() == words[i]) return static_cast<Word>(i);
    }
    wrong(called(row), node, "one of " + plc_base::joined_with_or(words));
    return std::nullopt;
  }

  Profile& profile_;
  Findings& findings_;
};

}  // namespace

ProfileResult parse_profile(const std::string& text, const std::string& file) {
  ProfileResult result;
  Findings findings(file);
  const plc_toml::TomlText toml = plc_toml::parse_toml(text, findings);
  ProfileParser(result.profile, findings).take(toml.table);
  result.findings = findings.take();
  return result;
}

ProfileResult read_profile(const std::string& path) {
  const plc_base::FileText text = plc_base::read_file(path, kMostFileBytes);
  if (text.problem.empty()) return parse_profile(text.text, path);
  Findings findings("");
  findings.error({}, text.problem);
  return {{}, findings.take()};
}

std::string finding_line(const plc_toml::Finding& finding) {
  std::string line = finding.file.empty() ? "" : plc_base::shown_line(finding.file) + ":";
  if (finding.line > 0) line += std::to_string(finding.line) + ":" + std::to_string(finding.column) + ":";
  return line + (line.empty() ? "" : " ") + finding.text;
}

}  // namespace plc_profile
