// What a survey found and cannot explain: the controller's programmer can.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

struct Question {
  std::string about;  // a variable, a program, or what the controller does
  std::string what;
};

// One for each finding that is not what a plain controller does.
std::vector<Question> questions(const SurveyRecord& record);

}  // namespace plc_host::survey
