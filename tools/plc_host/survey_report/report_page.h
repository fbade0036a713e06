// The report as one page for people: what was found, what to set, what to ask, and the figures behind it.
#pragma once

#include <string>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// HTML. Everything from outside stands in it as text, and nothing in it asks a network for anything.
std::string report_page(const SurveyRecord& record);

}  // namespace plc_host::survey
