// Records of surveys that nobody made, for tests of what reports say of them.
#pragma once

#include "tools/plc_host/survey/survey_record.h"

namespace survey_test {

// A survey that came to its end, with something of every kind to say.
plc_host::survey::SurveyRecord full_record();

// One that ended when half of its variables were read.
plc_host::survey::SurveyRecord interrupted_record();

// One whose name could not be resolved: nothing was measured.
plc_host::survey::SurveyRecord empty_record();

// The full one, with names, values and messages that are markup, controls and no UTF-8.
plc_host::survey::SurveyRecord hostile_record();

// A large one: every list is longer than a page shows.
plc_host::survey::SurveyRecord large_record();

}  // namespace survey_test
