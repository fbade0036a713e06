// What a profile means for a configuration.
#include <algorithm>
#include <string>

#include "profile/profile_file.h"
#include "profile/profile_use.h"
#include "tools/plc_gateway/config/check_files.h"

namespace plc_gateway {
namespace {

constexpr uint32_t kMostProfiledSeconds = 60;  // as of reply_timeout_s

void tell_fast_polls(const Draft& draft, uint32_t poll_ms, Findings& findings) {
  for (size_t i = 0; i < draft.polls.size(); ++i) {
    const Ms every_ms = draft.config.polls[i].every_ms;
    if (every_ms >= Ms{poll_ms}) continue;
    findings.note(draft.polls[i].place, "every_ms is " + std::to_string(every_ms) +
                                            ", and the profile advises against less than " + std::to_string(poll_ms));
  }
}

}  // namespace

void use_profile(Draft& draft, Findings& findings) {
  plc_client::Options& options = draft.config.controller;
  if (options.profile.empty()) return;
  const plc_profile::ProfileResult result = plc_profile::read_profile(options.profile);
  for (const Finding& finding : result.findings) {
    findings.error(draft.profile, plc_profile::finding_line(finding));
  }
  if (!result.ok()) {
    options.profile.clear();
    return;
  }
  const plc_profile::Profile& profile = result.profile;
  const plc_client::Options usual;
  if (profile.recv_timeout_s && options.reply_timeout_s == usual.reply_timeout_s) {
    options.reply_timeout_s = std::min(*profile.recv_timeout_s, kMostProfiledSeconds);
  }
  const std::string word = plc_profile::contract_word(profile, options.driver != usual.driver);
  if (!word.empty()) findings.note(draft.profile, word);
  if (profile.poll_ms) tell_fast_polls(draft, *profile.poll_ms, findings);
}

}  // namespace plc_gateway
