// The steps of a survey, in their order. Each fills its part of the record, as far as it came when SurveyEnded is
// thrown.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/plc_host/survey/conversation.h"
#include "tools/plc_host/survey/declared.h"

namespace plc_host::survey {

// Done when the work returns, else made in part with the reason.
void run_step(Step& step, const std::function<void()>& work);

// Connects, other connections beside the first, half of one closed.
void survey_link(Conversation& conversation);

// The directory against the scopes of the tag files; gives the variables their programs' numbers.
void survey_programs(Conversation& conversation, Declarations& declared);

// Each variable by itself and in batches.
void survey_variables(Conversation& conversation, Declarations& declared);

// How many names and values a request may have, and how long answers to so many take.
void survey_times(Conversation& conversation, const Declarations& declared);

// The scratch variables alone, which are put back.
void survey_writes(Conversation& conversation, const Declarations& declared);

// The good variables again and again for hours.
void survey_hours(Conversation& conversation, const Declarations& declared);

// Requests that a step sends, about.
uint64_t link_requests(const SurveyPlan& plan);
uint64_t variable_requests(const Declarations& declared);
uint64_t time_requests(const SurveyPlan& plan);

}  // namespace plc_host::survey
