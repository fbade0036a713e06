// One table of the configuration, taken key by key: whatever is not as it must be is told and has no value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/toml/toml_library.h"
#include "base/toml/toml_text.h"

namespace plc_gateway {

using plc_toml::Findings;
using plc_toml::form_of;
using plc_toml::number_text;
using plc_toml::parse_toml;
using plc_toml::Place;
using plc_toml::place_of;
using plc_toml::PlacedText;
using plc_toml::TomlText;

class Section {
 public:
  // Null for a table that is not there. Unknown and missing keys are told at once; missing ones only when is_whole, for
  // what was left out of the file may have been these.
  Section(const std::string& name, const toml::table* table, bool is_whole, Findings& findings);

  bool exists() const { return table_ != nullptr; }
  bool has(const char* key) const { return table_ != nullptr && table_->contains(key); }
  // Of the value; of the section's head when there is none.
  Place place(const char* key) const;

  // Nothing when the key is not there, or was told to be wrong. No text is empty or holds a control character.
  std::optional<std::string> text(const char* key);
  // One text, or a list of them.
  std::vector<PlacedText> texts(const char* key);
  std::optional<int64_t> integer(const char* key, int64_t low, int64_t high);
  std::optional<double> number(const char* key);
  std::optional<bool> flag(const char* key);

  void error(const char* key, const std::string& text) { findings_.error(place(key), head_ + " " + key + " " + text); }

 private:
  // The keys that were probably meant.
  std::vector<std::string> tell_unknown_keys();
  void tell_missing_keys(const std::vector<std::string>& meant);
  const toml::node* node(const char* key) const;
  void wrong_type(const char* key, const toml::node& node, const std::string& wanted);
  bool is_good_text(const char* key, const std::string& text, Place place);

  std::string name_;
  std::string head_;  // "[broker]"
  const toml::table* table_;
  Findings& findings_;
};

// The sections that there are; those that stand for several have double brackets.
bool is_section(const std::string& name);
bool is_repeated_section(const std::string& name);
std::vector<std::string> section_names();
void tell_missing_sections(const toml::table& table, Findings& findings);

// "a", "a and b", "a, b and c".
std::string joined_with_and(const std::vector<std::string>& names);

}  // namespace plc_gateway
