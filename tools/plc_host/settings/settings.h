// What need not be typed each time: address, port and the like, from the environment and from files.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "profile/profile.h"

namespace plc_host {

// A setting's name is that of its option without the dashes, and the key in a file.
struct SettingRule {
  const char* name;
  const char* variable;  // of the environment
  const char* usual;     // where nobody says otherwise; "" for nothing
  uint32_t low;          // of a number
  uint32_t high;         // 0 for a text
  const char* unit;      // of a number; "" for what is counted
};

// In the order in which info shows them.
const std::vector<SettingRule>& setting_rules();

struct Setting {
  std::string value;
  std::string from;  // "--port", "PLC_HOST_PORT", "plc-host.toml:3"; "" where nobody says it
  int rank = 0;      // whoever says it before the others has the lowest
  bool is_typed() const { return !from.empty() && rank == 0; }
  bool is_said() const { return !from.empty(); }
};

using Settings = std::map<std::string, Setting>;

// Throws HostError; what is wrong with the file but for the last of it is told before.
plc_profile::Profile read_profile_setting(const Setting& profile);

// Each setting by its name, from the first that says it: the options given, the environment, plc-host.toml in the
// working directory, plc-host.toml in the user's folder of configurations, the profile, what is usual. Every value is a
// possible one. Throws HostError; what is wrong with a file but for the last of it is told before.
Settings choose_settings(const std::map<std::string, std::string>& given);

// plc-host.toml of the working directory, and of the user; the latter "" where there is no folder for it.
std::array<std::string, 2> settings_files();

}  // namespace plc_host
