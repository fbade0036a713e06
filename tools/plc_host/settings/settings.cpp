// Reads the environment and the files of settings, and has the first that says something win.
#include "tools/plc_host/settings/settings.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "base/files.h"
#include "base/near_names.h"
#include "base/text.h"
#include "base/toml/toml_text.h"
#include "profile/profile_file.h"
#include "profile/profile_use.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

constexpr char kFileName[] = "plc-host.toml";
constexpr size_t kMostFileBytes = size_t{1} << 16U;
constexpr int kTypedRank = 0;
constexpr int kVariableRank = 1;
constexpr int kFirstFileRank = 2;
constexpr int kProfileRank = 4;
constexpr int kUsualRank = 5;
constexpr char kVariableStart[] = "PLC_HOST_";
// As files of settings write them.
constexpr char kDriverWords[] = "\"guarded\" or \"contract\"";
constexpr char kColorWords[] = "\"auto\", \"always\" or \"never\"";

bool is_number(const SettingRule& rule) { return rule.high > 0; }

std::string range_of(const SettingRule& rule) { return plc_usage::range_text({rule.low, rule.high, rule.unit}); }

bool is_named(const SettingRule& rule, const char* name) { return rule.name == std::string(name); }

const SettingRule* rule_of(const std::string& name) {
  for (const SettingRule& rule : setting_rules()) {
    if (rule.name == name) return &rule;
  }
  return nullptr;
}

// What the value must be as a file of settings writes it, "" when it is that.
std::string demand_on(const SettingRule& rule, const std::string& value) {
  if (is_number(rule)) {
    return plc_usage::number_within(value, rule.low, rule.high) ? "" : range_of(rule);
  }
  if (value.empty()) return "a text that is not empty";
  if (value.find('\0') != std::string::npos) return "a text without a zero character";
  const bool is_color = value == "auto" || value == "always" || value == "never";
  return is_named(rule, "color") && !is_color ? kColorWords : "";
}

// As a command line takes it.
std::string without_quotes(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
  return text;
}

// The key of a setting that other programs call so; "" where nobody does.
std::string setting_called(const std::string& elsewhere) {
  const std::string option = plc_usage::word_used_here("--" + elsewhere);
  const std::string name = option.substr(2);
  return name != elsewhere && rule_of(name) != nullptr ? name : "";
}

bool is_foreign(const struct stat& status) { return status.st_uid != geteuid() && status.st_uid != 0; }

// A file says what to do where the user has gone, and anybody may have put it there.
std::string distrust(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return {};
  if (S_ISLNK(status.st_mode) && is_foreign(status)) return "it is a link of another user's";
  if (stat(path.c_str(), &status) != 0) return {};
  if (is_foreign(status)) return "it belongs to another user";
  return (status.st_mode & S_IWOTH) != 0 ? "everybody on this machine may write it" : "";
}

class SettingsFile {
 public:
  explicit SettingsFile(const std::string& path) : path_(path), findings_(path) {}

  // The settings that stand there. Throws HostError.
  Settings read(int rank) {
    const plc_base::FileText text = plc_base::read_file(path_, kMostFileBytes);
    if (!text.problem.empty()) throw HostError(kExitUsage, text.problem);
    const plc_toml::TomlText toml = plc_toml::parse_toml(text.text, findings_);
    for (const auto& [key, node] : toml.table) {
      take(std::string(key.str()), node, plc_toml::place_of(key.source()), rank);
    }
    refuse_findings();
    return settings_;
  }

 private:
  void take(const std::string& key, const toml::node& node, plc_toml::Place place, int rank) {
    const SettingRule* rule = rule_of(key);
    if (rule == nullptr && node.is_table()) return tell_section(key, place);
    if (rule == nullptr) return tell_unknown(key, place);
    const std::string value = value_of(*rule, node);
    if (value.empty()) return;
    settings_[key] = {in_folder(*rule, value), path_ + ":" + std::to_string(place.line), rank};
  }

  void tell_section(const std::string& key, plc_toml::Place place) {
    findings_.error(place, "there are no sections: write the keys below [" + key + "] without it, at the beginning");
  }

  void tell_unknown(const std::string& key, plc_toml::Place place) {
    std::vector<std::string> known;
    for (const SettingRule& rule : setting_rules()) known.emplace_back(rule.name);
    const std::string name = setting_called(key);
    const std::string meant = name.empty() ? plc_base::did_you_mean(key, known) : "did you mean " + name + "?";
    findings_.error(place, "unknown key " + plc_base::quoted(key) + "; " +
                               (meant.empty() ? "the keys are " + plc_base::joined_with_or(known) : meant));
  }

  // As it would be typed; "" when it was told to be wrong.
  std::string value_of(const SettingRule& rule, const toml::node& node) {
    const plc_toml::Place place = plc_toml::place_of(node.source());
    const bool fits = is_number(rule) ? node.is_integer() : node.is_string();
    const std::string wanted = is_number(rule) ? range_of(rule) : "a text in double quotes";
    const std::string form = plc_toml::form_of(node) + (node.is_floating_point() ? " with a decimal point" : "");
    if (!fits) {
      findings_.error(place, std::string(rule.name) + " is " + form + ": give " + wanted);
      return {};
    }
    std::string value = is_number(rule) ? std::to_string(**node.as_integer()) : **node.as_string();
    const std::string demand = demand_on(rule, value);
    if (!demand.empty()) {
      findings_.error(place, std::string(rule.name) + " is " + plc_toml::form_of(node) + ": give " + demand);
    } else if (is_named(rule, "driver") && value != "guarded" && value != "contract") {
      findings_.error(place, "driver is " + plc_toml::form_of(node) + ": give " + kDriverWords +
                                 "; a library's path is taken from --driver and PLC_HOST_DRIVER alone");
    } else {
      return value;
    }
    return {};
  }

  // A path is meant from the file's own folder on.
  std::string in_folder(const SettingRule& rule, const std::string& value) const {
    const size_t slash = path_.rfind('/');
    const bool is_path = is_named(rule, "tags") || is_named(rule, "profile");
    if (!is_path || value.front() == '/' || slash == std::string::npos) return value;
    return path_.substr(0, slash + 1) + value;
  }

  void refuse_findings() {
    const std::vector<plc_toml::Finding> found = findings_.take();
    for (size_t i = 0; i < found.size(); ++i) {
      const plc_toml::Finding& finding = found[i];
      const std::string place =
          finding.line == 0 ? "" : std::to_string(finding.line) + ":" + std::to_string(finding.column) + ":";
      const std::string text = path_ + ":" + place + " " + finding.text;
      if (i + 1 == found.size()) throw HostError(kExitUsage, text);
      show_message(text);
    }
  }

  std::string path_;
  plc_toml::Findings findings_;
  Settings settings_;
};

// What a file says; nothing when it is not there or not to be trusted.
Settings settings_in(const std::string& path, int rank) {
  struct stat status {};
  if (path.empty() || lstat(path.c_str(), &status) != 0) return {};
  const bool is_there = access(path.c_str(), F_OK) == 0;
  const std::string reason = is_there ? distrust(path) : "it is a link to a file that is not there";
  if (reason.empty()) return SettingsFile(path).read(rank);
  show_message(path + " is not used: " + reason);
  return {};
}

// What is meant by a variable that is no setting.
std::string meant_variable(const std::string& bare, const std::vector<std::string>& known) {
  std::string key = bare;
  for (char& letter : key) {
    letter = static_cast<char>(letter == '_' ? '-' : std::tolower(static_cast<unsigned char>(letter)));
  }
  const std::string name = key == "library" ? "driver" : setting_called(key);
  for (const SettingRule& rule : setting_rules()) {
    if (name == rule.name) return std::string("did you mean ") + rule.variable + "?";
  }
  const std::vector<std::string> near = plc_base::near_names(bare, known);
  return near.empty() ? "plc-host info lists them" : "did you mean " + (kVariableStart + near.front()) + "?";
}

// One that is misspelt would be missed in silence.
void tell_unknown_variables() {
  std::vector<std::string> known;
  for (const SettingRule& rule : setting_rules()) known.emplace_back(rule.variable + sizeof kVariableStart - 1);
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string name(*entry, std::strcspn(*entry, "="));
    if (name.compare(0, sizeof kVariableStart - 1, kVariableStart) != 0) continue;
    const std::string bare = name.substr(sizeof kVariableStart - 1);
    if (std::find(known.begin(), known.end(), bare) != known.end()) continue;
    show_message("the variable " + name + " of the environment is not a setting; " + meant_variable(bare, known));
  }
}

Settings settings_of_environment() {
  tell_unknown_variables();
  Settings settings;
  for (const SettingRule& rule : setting_rules()) {
    const char* value = std::getenv(rule.variable);
    if (value == nullptr || *value == '\0') continue;
    settings[rule.name] = {value, rule.variable, kVariableRank};
  }
  return settings;
}

// What was learnt of the controller speaks where nobody else does.
Settings settings_of(const plc_profile::Profile& profile, const std::string& path) {
  Settings settings;
  const auto set = [&](const char* name, const std::string& value) { settings[name] = {value, path, kProfileRank}; };
  if (profile.recv_timeout_s) set("timeout", std::to_string(*profile.recv_timeout_s));
  if (profile.delay_ms) set("delay", std::to_string(*profile.delay_ms));
  const std::string driver = plc_profile::driver_choice(profile);
  if (!driver.empty()) set("driver", driver);
  return settings;
}

void add_missing(Settings& settings, const Settings& more) {
  for (const auto& [name, setting] : more) {
    const SettingRule& rule = *rule_of(name);
    const std::string demand = demand_on(rule, setting.value);
    // What a better place says otherwise does not matter.
    if (settings.count(name) > 0) continue;
    if (!demand.empty()) {
      throw HostError(kExitUsage, setting.from + " " + setting.value + ": give " + without_quotes(demand));
    }
    settings[name] = setting;
  }
}

}  // namespace

const std::vector<SettingRule>& setting_rules() {
  static const std::vector<SettingRule> kRules = {
      {"address", "PLC_HOST_ADDRESS", "", 0, 0, ""},
      {"port", "PLC_HOST_PORT", "8500", 1, 65535, ""},
      {"area", "PLC_HOST_AREA", "0", 0, 65535, ""},
      {"tags", "PLC_HOST_TAGS", "", 0, 0, ""},
      {"timeout", "PLC_HOST_TIMEOUT", "2", 1, 86400, "seconds"},
      {"delay", "PLC_HOST_DELAY", "0", 0, 1000000, "milliseconds"},
      {"driver", "PLC_HOST_DRIVER", "", 0, 0, ""},
      {"profile", "PLC_HOST_PROFILE", "", 0, 0, ""},
      {"color", "PLC_HOST_COLOR", "auto", 0, 0, ""},
  };
  return kRules;
}

plc_profile::Profile read_profile_setting(const Setting& profile) {
  plc_profile::ProfileResult result = plc_profile::read_profile(profile.value);
  for (size_t i = 0; i < result.findings.size(); ++i) {
    const bool is_of_file = result.findings[i].line == 0;
    std::string text = is_of_file ? profile.from + ": " : "";
    text += plc_profile::finding_line(result.findings[i]);
    if (is_of_file) text += ". Try: the profile.toml that plc-host survey wrote";
    if (i + 1 == result.findings.size()) throw HostError(kExitUsage, text);
    show_message(text);
  }
  return result.profile;
}

std::array<std::string, 2> settings_files() {
  const char* folder = std::getenv("XDG_CONFIG_HOME");
  const char* home = std::getenv("HOME");
  std::string user;
  if (folder != nullptr && *folder == '/') {
    user = std::string(folder) + "/" + kFileName;
  } else if (home != nullptr && *home == '/') {
    user = std::string(home) + "/.config/" + kFileName;
  }
  return {kFileName, user};
}

Settings choose_settings(const std::map<std::string, std::string>& given) {
  Settings typed;
  for (const auto& [name, value] : given) typed[name] = {value, "--" + name, kTypedRank};
  Settings settings;
  add_missing(settings, typed);
  add_missing(settings, settings_of_environment());
  const std::array<std::string, 2> files = settings_files();
  add_missing(settings, settings_in(files[0], kFirstFileRank));
  add_missing(settings, settings_in(files[1], kFirstFileRank + 1));
  if (settings.count("profile") > 0) {
    const Setting profile = settings["profile"];
    add_missing(settings, settings_of(read_profile_setting(profile), profile.value));
  }
  for (const SettingRule& rule : setting_rules()) {
    if (settings.count(rule.name) == 0) settings[rule.name] = {rule.usual, "", kUsualRank};
  }
  return settings;
}

}  // namespace plc_host
