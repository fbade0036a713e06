// Profiles as files: read with everything that is wrong in them, written with a word on each line.
#pragma once

#include <string>
#include <vector>

#include "base/toml/findings.h"
#include "profile/profile.h"

namespace plc_profile {

struct ProfileResult {
  Profile profile;                          // what could be read; the rest as in a profile without any line
  std::vector<plc_toml::Finding> findings;  // each an error
  bool ok() const { return findings.empty(); }
};

// Any bytes are safe. The file is named in the findings alone.
ProfileResult parse_profile(const std::string& text, const std::string& file);

// Never throws for what stands in the file, or for what is no file.
ProfileResult read_profile(const std::string& path);

// "profile.toml:4:9: unknown key 'lenght' in [replies]; did you mean length?"
std::string finding_line(const plc_toml::Finding& finding);

// What parse_profile reads back as it was. The same profile is always the same text.
std::string profile_text(const Profile& profile);

// Why it was not written, empty when it was; no file of inputs is written over.
std::string write_profile(const std::string& path, const Profile& profile, const std::vector<std::string>& inputs);

}  // namespace plc_profile
