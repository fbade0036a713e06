// What a profile means for a configuration.
#include <algorithm>
#include <string>

#include "profile/profile_file.h"
#include "profile/profile_use.h"
#include "tools/plc_gateway/config/check_files.h"

namespace plc_gateway {
namespace {

constexpr uint32_t kMostProfiledSeconds = 60;  // as of reply_timeout_s

// Why the profile rules the driver out, and what to do; "" where it does not.
std::string why_ruled_out(const plc_profile::Profile& profile, bool is_guarded) {
  const bool is_unusable = profile.guarded == plc_profile::Profile::Guarded::kNotUsable;
  const std::string better = plc_profile::better_driver(profile.guarded);
  const std::string& problem = profile.contract_problem;
  const std::string contract = "the contract build does not read this controller: " + problem;
  if (is_guarded && !is_unusable) return {};
  if (!is_guarded && problem.empty()) return {};
  if (is_unusable && !problem.empty()) {
    return "no installed driver reads this controller: the guarded driver cannot be used, and " + contract +
           "; change that, survey the controller again and name the new profile";
  }
  if (is_guarded) {
    return "the guarded driver cannot be used with this controller; set driver = \"contract\", whose values are "
           "unguarded, or survey the controller again";
  }
  return contract + "; set driver to " + (better.empty() ? "\"guarded\"" : better);
}

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
  const plc_profile::Profile& profile = draft.learnt = result.profile;
  const plc_client::Options usual;
  if (profile.recv_timeout_s && options.reply_timeout_s == usual.reply_timeout_s) {
    options.reply_timeout_s = std::min(*profile.recv_timeout_s, kMostProfiledSeconds);
  }
  if (profile.poll_ms) tell_fast_polls(draft, *profile.poll_ms, findings);
}

void check_driver(const Draft& draft, bool is_guarded, Findings& findings) {
  const bool is_named = draft.config.controller.driver != plc_client::Options().driver;
  const Place place = draft.driver;
  const std::string ruled_out = why_ruled_out(draft.learnt, is_guarded);
  const std::string better = plc_profile::better_driver(draft.learnt.guarded);
  if (!ruled_out.empty()) {
    findings.error(place, "the profile rules the driver out: " + ruled_out);
  } else if (is_guarded && !better.empty() && !is_named && !draft.learnt.contract_problem.empty()) {
    findings.error(place, "the profile rules the driver out: " + plc_profile::contract_word(draft.learnt) +
                              "; set driver to " + better);
  } else if (const std::string word = plc_profile::contract_word(draft.learnt, is_named); !word.empty()) {
    findings.note(draft.profile, word);
  }
  if (is_guarded) return;
  const std::string unguarded =
      "this is not the guarded build of the driver: it takes any reply for an answer, so that wrong values and writes "
      "can pass for right ones";
  if (draft.config.accept_unguarded) {
    findings.note(place, unguarded + "; values are published as unguarded");
  } else {
    const bool is_unusable = draft.learnt.guarded == plc_profile::Profile::Guarded::kNotUsable;
    const std::string other = "set driver " + (better.empty() ? "= \"guarded\"" : "to " + better) + ", or ";
    findings.error(place, unguarded + "; " + (is_unusable ? "" : other) + "set accept_unguarded = true");
  }
}

}  // namespace plc_gateway
