// One table of the configuration, taken key by key: whatever is not as it must be is told and has no value.
#pragma once

#include <toml++/toml.h>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_gateway/config/findings.h"

namespace plc_gateway {

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

// As short as can be read back: "3000", "0.1".
std::string number_text(double number);

// "the integer 5", "a list": what stands there.
std::string form_of(const toml::node& node);

}  // namespace plc_gateway
