// What follows from a survey for hosts: settings with the figures that they come from, and the profile.
#pragma once

#include <vector>

#include "profile/profile.h"
#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

std::vector<Recommendation> recommend(const SurveyRecord& record);

// Of batch_names and poll_ms those that are not among the recommendations of the record.
std::vector<LeftOut> left_out(const SurveyRecord& record);

// The verdict as a profile has it.
plc_profile::Profile::Guarded guarded_of(Verdict::Usable usable);

// What plc-host, the client library and the gateway set by it, and what plc-sim imitates.
plc_profile::Profile make_profile(const SurveyRecord& record);

}  // namespace plc_host::survey
