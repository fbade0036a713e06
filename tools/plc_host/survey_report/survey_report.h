// What a survey found out as files.
#pragma once

#include <string>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// Writes report.json into the folder, whole or not at all. Empty when it is there, else why it is not.
std::string write_reports(const SurveyRecord& record, const std::string& folder);

}  // namespace plc_host::survey
