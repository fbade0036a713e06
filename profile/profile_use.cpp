// Takes from a profile what hosts set themselves by.
#include "profile/profile_use.h"

#include <algorithm>
#include <optional>

namespace plc_profile {

uint32_t names_at_a_time(const Profile& profile, bool is_guarded) {
  uint32_t least = 0;
  const std::optional<uint32_t> in_a_piece = is_guarded ? std::nullopt : profile.contract_names;
  for (const std::optional<uint32_t>& limit :
       {profile.batch_names, profile.names_per_request, profile.values_per_request, in_a_piece}) {
    if (limit) least = least == 0 ? *limit : std::min(least, *limit);
  }
  return least;
}

namespace {

// The contract build looks at no refusal. Where one has records for all names, those of refused ones zero, only the
// status tells them, and only to a guarded build that looks at it.
bool tells_refusal(const Profile& profile, const Profile::Refused& refused, bool is_guarded) {
  if (!is_guarded) return false;
  const std::optional<Profile::Shape>& shape = refused.shape ? refused.shape : profile.shape;
  if (shape != Profile::Shape::kFull) return true;
  const bool looks_at_status =
      profile.guarded == Profile::Guarded::kUsable || profile.guarded == Profile::Guarded::kUnknown;
  const std::optional<uint16_t>& status = refused.status ? refused.status : profile.refusal_status;
  return looks_at_status && status.value_or(0) != profile.status_done.value_or(0);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> absent_names(const Profile& profile, bool is_guarded) {
  std::vector<std::pair<std::string, std::string>> names;
  for (const Profile::Refused& one : profile.refused) {
    if (!tells_refusal(profile, one, is_guarded)) names.emplace_back(one.name, one.program);
  }
  return names;
}

std::string guarded_options(Profile::Guarded guarded) {
  switch (guarded) {
    case Profile::Guarded::kWithoutStatus:
      return "PLC_GUARD_STATUS=OFF";
    case Profile::Guarded::kWithoutValueEnd:
      return "PLC_GUARD_VALUE_END=OFF";
    case Profile::Guarded::kWithoutBoth:
      return "PLC_GUARD_STATUS=OFF and PLC_GUARD_VALUE_END=OFF";
    case Profile::Guarded::kUsable:
    case Profile::Guarded::kUnknown:
    case Profile::Guarded::kNotUsable:
      break;
  }
  return {};
}

std::string better_driver(Profile::Guarded guarded) {
  const std::string options = guarded_options(guarded);
  return options.empty() ? "" : "the path of a guarded driver built with " + options;
}

namespace {

// Why the guarded driver as it is usually built cannot be used, "" when it can or nobody knows.
std::string guarded_problem(const Profile& profile) {
  if (profile.guarded == Profile::Guarded::kNotUsable) return "the guarded driver cannot be used with this controller";
  const std::string options = guarded_options(profile.guarded);
  return options.empty() ? "" : "the guarded driver can be used here only if it is built with " + options;
}

// Of replies in pieces the contract build takes the first one alone.
std::string pieces_word(const Profile& profile) {
  const std::optional<uint32_t> names = profile.contract_names ? profile.contract_names : profile.batch_names;
  if (!names || (!profile.piece_bytes && !profile.contract_names)) return {};
  const std::string size = profile.piece_bytes ? ", " + std::to_string(*profile.piece_bytes) + " bytes here" : "";
  return ". It takes the first piece of a reply alone" + size + ": ask for no more than " + std::to_string(*names) +
         " names at a time";
}

// Of what the driver that is taken shows as values.
std::string refused_word(const Profile& profile, bool is_guarded) {
  const size_t count = absent_names(profile, is_guarded).size();
  if (count == 0) return {};
  return ". A variable that the controller refuses looks like one with a value here: " +
         (count == 1 ? std::string("the one of [[refused]] is not asked for")
                     : "the " + std::to_string(count) + " of [[refused]] are not asked for") +
         ". Survey again when the controller or a tag file has changed";
}

}  // namespace

std::string driver_choice(const Profile& profile) {
  if (guarded_problem(profile).empty()) return {};
  return profile.contract_problem.empty() ? "contract" : "guarded";
}

std::string contract_word(const Profile& profile, bool is_driver_named) {
  const std::string problem = guarded_problem(profile);
  if (problem.empty()) return {};
  if (!profile.contract_problem.empty()) {
    return problem + ", and the contract build does not read it: " + profile.contract_problem +
           (is_driver_named
                ? ". The driver that is named is kept"
                : ". The guarded build is kept: it fails where the contract build would give wrong values") +
           refused_word(profile, true);
  }
  const std::string risk =
      " may take a late reply for that of another variable: keep delay_ms above the answer times, and read back what "
      "you write" +
      pieces_word(profile) + refused_word(profile, false);
  const std::string better = better_driver(profile.guarded);
  if (is_driver_named) return problem + ". The driver that is named is kept. A contract build" + risk;
  return problem + ": the contract build is taken" + (better.empty() ? "" : ", better is " + better) + ". It" + risk;
}

std::string loaded_contract_word(const Profile& profile) {
  if (!guarded_problem(profile).empty()) return {};
  if (!profile.contract_problem.empty()) {
    return "the contract build is loaded, and does not read this controller: " + profile.contract_problem +
           ". Its values may be wrong with result 0: load the guarded build";
  }
  if (!profile.contract_names) return {};
  return "the contract build is loaded" + pieces_word(profile) + refused_word(profile, false);
}

}  // namespace plc_profile
