// A configuration as its file alone says it: every key, but no name looked up and no other file opened.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/toml/findings.h"
#include "profile/profile.h"
#include "tools/plc_gateway/config/config.h"

namespace plc_gateway {

using plc_toml::Findings;
using plc_toml::Place;
using plc_toml::PlacedText;

struct PollDraft {
  Place place;
  std::vector<PlacedText> names;
};

struct CommandDraft {
  PlacedText name;  // empty when it was told to be wrong
  Place min;
  Place max;
};

struct Draft {
  Config config;  // paths as they were written; without variables, and without rules for commands that have no name
  // Where things stand that other files or the controller have a say in; line 0 for those that are not there.
  Place address, driver, profile, journal_folder;
  BrokerPlaces places;
  plc_profile::Profile learnt;  // of the controller; nothing where no profile is named
  std::vector<PlacedText> tags;
  std::vector<PollDraft> polls;        // as config.polls
  std::vector<CommandDraft> commands;  // as config.commands
};

// Whether an address can be looked for, and names with it: what it needs was given and is right.
bool can_look_names_up(const Draft& draft);

// Any bytes are safe; touches no other file and no network.
Draft parse_config(const std::string& text, const std::string& file, Findings& findings);

}  // namespace plc_gateway
