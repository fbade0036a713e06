// Reads the profile that options name.
#include "client/controller/profiled_options.h"

#include "client/controller/mistake.h"
#include "profile/profile_file.h"
#include "profile/profile_use.h"

namespace plc_client {
namespace {

// The first mistake, and how many more there are.
void demand_right(const plc_profile::ProfileResult& result) {
  if (result.ok()) return;
  std::string text = plc_profile::finding_line(result.findings.front());
  const size_t others = result.findings.size() - 1;
  if (others > 0) text += "; and " + std::to_string(others) + " more";
  refuse<Error>(text);
}

}  // namespace

ProfiledOptions with_profile(const Options& given) {
  ProfiledOptions profiled{given};
  if (given.profile.empty()) return profiled;
  const plc_profile::ProfileResult result = plc_profile::read_profile(given.profile);
  demand_right(result);
  const plc_profile::Profile& profile = result.profile;
  const Options usual;
  Options& options = profiled.options;
  if (profile.recv_timeout_s && given.reply_timeout_s == usual.reply_timeout_s) {
    options.reply_timeout_s = *profile.recv_timeout_s;
  }
  if (profile.delay_ms && given.delay_ms == usual.delay_ms) options.delay_ms = *profile.delay_ms;
  const bool is_driver_named = given.driver != usual.driver;
  const std::string word = plc_profile::contract_word(profile, is_driver_named);
  if (!word.empty()) {
    if (!is_driver_named) options.driver = plc_profile::driver_choice(profile);
    profiled.word = given.profile + ": " + word;
  }
  profiled.program_names = {{}, profile.program_name_units, profile.longest_name_units};
  profiled.profile = profile;
  return profiled;
}

}  // namespace plc_client
