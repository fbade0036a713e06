// Takes a table of the configuration apart, and knows every key that there is.
#include "tools/plc_gateway/config/section.h"

#include <algorithm>
#include <cmath>

#include "base/near_names.h"
#include "base/text.h"
#include "base/toml/toml_text.h"

namespace plc_gateway {
namespace {

struct KeyRow {
  const char* name;
  const char* example;  // a line of TOML, with what it is for; null for a key that may be missing
};

struct SectionRow {
  const char* name;
  bool is_required;
  bool is_repeated;
  std::vector<KeyRow> keys;
};

const std::vector<SectionRow>& sections() {
  static const std::vector<SectionRow> rows = {
      {"controller",
       true,
       false,
       {{"name", "name = \"press1\", the id of the device on the broker"},
        {"address", "address = \"192.168.0.10\""},
        {"port", nullptr},
        {"tags", "tags = \"/etc/plc-gateway/press1\", the folder with the controller's tag files"},
        {"reply_timeout_s", nullptr},
        {"driver", nullptr},
        {"accept_unguarded", nullptr},
        {"profile", nullptr}}},
      {"broker",
       true,
       false,
       {{"url", "url = \"mqtts://broker.plant:8883\""},
        {"mqtt_version", nullptr},
        {"username", nullptr},
        {"password_file", nullptr},
        {"ca_file", nullptr},
        {"cert_file", nullptr},
        {"key_file", nullptr},
        {"keep_alive_s", nullptr}}},
      {"sparkplug",
       true,
       false,
       {{"group", "group = \"Plant1\""},
        {"edge_node", "edge_node = \"press1\", a name that no other gateway of the group has"},
        {"primary_host", nullptr}}},
      {"json", false, false, {{"topic", "topic = \"plant1/press1/{name}\""}}},
      {"poll",
       true,
       true,
       {{"every_ms", "every_ms = 500"}, {"names", "names = [\"*\"] for all variables"}, {"deadband", nullptr}}},
      {"command",
       false,
       true,
       {{"name", "name = \"Motor.Speed\", the variable that may be written"},
        {"min", nullptr},
        {"max", nullptr},
        {"every_ms", nullptr},
        {"max_age_s", nullptr},
        {"verify", nullptr}}},
      {"journal", true, false, {{"folder", "folder = \"/var/lib/plc-gateway/press1\""}, {"max_mb", nullptr}}},
      {"metrics", false, false, {{"listen", "listen = \"127.0.0.1:9600\""}}},
  };
  return rows;
}

const SectionRow* find_section(const std::string& name) {
  for (const SectionRow& row : sections()) {
    if (name == row.name) return &row;
  }
  return nullptr;
}

bool has_key(const SectionRow& row, const std::string& key) {
  return std::any_of(row.keys.begin(), row.keys.end(), [&](const KeyRow& known) { return key == known.name; });
}

std::string head_of(const SectionRow& row) {
  return row.is_repeated ? "[[" + std::string(row.name) + "]]" : "[" + std::string(row.name) + "]";
}

// The sections that have such a key: "[controller]".
std::string owners_of(const std::string& key) {
  std::vector<std::string> owners;
  for (const SectionRow& row : sections()) {
    if (has_key(row, key)) owners.push_back(head_of(row));
  }
  return plc_base::joined_with_or(owners);
}

std::vector<std::string> key_names(const SectionRow& row, bool required_alone) {
  std::vector<std::string> names;
  for (const KeyRow& key : row.keys) {
    if (!required_alone || key.example != nullptr) names.emplace_back(key.name);
  }
  return names;
}

}  // namespace

bool is_section(const std::string& name) { return find_section(name) != nullptr; }

bool is_repeated_section(const std::string& name) {
  const SectionRow* row = find_section(name);
  return row != nullptr && row->is_repeated;
}

std::string joined_with_and(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text;
}

void tell_missing_sections(const toml::table& table, Findings& findings) {
  for (const SectionRow& row : sections()) {
    if (!row.is_required || table.contains(row.name)) continue;
    findings.error({}, "there is no " + head_of(row) + ": add it, with " + joined_with_and(key_names(row, true)));
  }
}

std::vector<std::string> section_names() {
  std::vector<std::string> names;
  for (const SectionRow& row : sections()) names.emplace_back(row.name);
  return names;
}

Section::Section(const std::string& name, const toml::table* table, bool is_whole, Findings& findings)
    : name_(name), head_(head_of(*find_section(name))), table_(table), findings_(findings) {
  if (table_ == nullptr) return;
  const std::vector<std::string> meant = tell_unknown_keys();
  if (is_whole) tell_missing_keys(meant);
}

std::vector<std::string> Section::tell_unknown_keys() {
  const SectionRow& row = *find_section(name_);
  const std::vector<std::string> known = key_names(row, false);
  std::vector<std::string> meant;
  for (const auto& [key, value] : *table_) {
    const std::string word(key.str());
    if (has_key(row, word)) continue;
    const std::vector<std::string> near = plc_base::near_names(word, known);
    const std::string owners = owners_of(word);
    std::string text = "unknown key " + plc_base::quoted(word) + " in " + head_;
    if (!owners.empty()) {
      text += ": it belongs to " + owners;
    } else if (!near.empty()) {
      text += "; did you mean " + plc_base::joined_with_or(near) + "?";
      meant.push_back(near.front());
    } else {
      text += "; it takes " + joined_with_and(known);
    }
    findings_.error(place_of(key.source()), text);
  }
  return meant;
}

// One that is there under a misspelt name was told already.
void Section::tell_missing_keys(const std::vector<std::string>& meant) {
  for (const KeyRow& key : find_section(name_)->keys) {
    if (key.example == nullptr || has(key.name)) continue;
    if (std::find(meant.begin(), meant.end(), key.name) != meant.end()) continue;
    findings_.error(place(key.name), head_ + " has no " + key.name + ": write " + key.example);
  }
}

const toml::node* Section::node(const char* key) const { return table_ == nullptr ? nullptr : table_->get(key); }

Place Section::place(const char* key) const {
  const toml::node* found = node(key);
  if (found != nullptr) return place_of(found->source());
  return table_ == nullptr ? Place{} : place_of(table_->source());
}

void Section::wrong_type(const char* key, const toml::node& node, const std::string& wanted) {
  findings_.error(place_of(node.source()), head_ + " " + key + " must be " + wanted + ", not " + form_of(node));
}

bool Section::is_good_text(const char* key, const std::string& text, Place place) {
  const auto is_control = [](char sign) { return static_cast<unsigned char>(sign) < 0x20 || sign == 0x7F; };
  const bool has_control = std::any_of(text.begin(), text.end(), is_control);
  if (!text.empty() && !has_control) return true;
  findings_.error(
      place, head_ + " " + key +
                 (has_control ? " holds a control character: take it out" : " is empty: give one, or remove the key"));
  return false;
}

std::optional<std::string> Section::text(const char* key) {
  const toml::node* found = node(key);
  if (found == nullptr) return std::nullopt;
  if (!found->is_string()) {
    wrong_type(key, *found, "a text between double quotes");
    return std::nullopt;
  }
  const std::string& text = **found->as_string();
  if (!is_good_text(key, text, place_of(found->source()))) return std::nullopt;
  return text;
}

std::vector<PlacedText> Section::texts(const char* key) {
  const toml::node* found = node(key);
  if (found == nullptr) return {};
  if (found->is_string()) {
    const std::optional<std::string> one = text(key);
    return one ? std::vector<PlacedText>{{*one, place(key)}} : std::vector<PlacedText>();
  }
  if (!found->is_array()) {
    wrong_type(key, *found, "a text or a list of texts");
    return {};
  }
  if (found->as_array()->empty()) {
    findings_.error(place(key), head_ + " " + key + " is an empty list: name one at least");
  }
  std::vector<PlacedText> all;
  for (const toml::node& element : *found->as_array()) {
    if (!element.is_string()) {
      wrong_type(key, element, "a list of texts between double quotes");
    } else if (is_good_text(key, **element.as_string(), place_of(element.source()))) {
      all.push_back({**element.as_string(), place_of(element.source())});
    }
  }
  return all;
}

std::optional<int64_t> Section::integer(const char* key, int64_t low, int64_t high) {
  const toml::node* found = node(key);
  if (found == nullptr) return std::nullopt;
  const std::string range = "from " + std::to_string(low) + " to " + std::to_string(high);
  if (!found->is_integer()) {
    wrong_type(key, *found, "an integer " + range);
    return std::nullopt;
  }
  const int64_t number = **found->as_integer();
  if (number >= low && number <= high) return number;
  error(key, "is " + std::to_string(number) + " and must be " + range);
  return std::nullopt;
}

std::optional<double> Section::number(const char* key) {
  constexpr int64_t kExact = int64_t{1} << 53;
  const toml::node* found = node(key);
  if (found == nullptr) return std::nullopt;
  if (found->is_integer()) {
    const int64_t number = **found->as_integer();
    if (number >= -kExact && number <= kExact) return static_cast<double>(number);
    error(key,
          "is " + std::to_string(number) + ", beyond 9007199254740992, up to which limits are exact: leave it out");
    return std::nullopt;
  }
  if (!found->is_floating_point()) {
    wrong_type(key, *found, "a number");
    return std::nullopt;
  }
  const double number = **found->as_floating_point();
  if (std::isfinite(number)) return number;
  error(key, "must be a finite number");
  return std::nullopt;
}

std::optional<bool> Section::flag(const char* key) {
  const toml::node* found = node(key);
  if (found == nullptr) return std::nullopt;
  if (found->is_boolean()) return **found->as_boolean();
  wrong_type(key, *found, "true or false");
  return std::nullopt;
}

}  // namespace plc_gateway
