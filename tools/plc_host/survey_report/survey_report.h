// What a survey found out as files: a page for people and the same for programs.
#pragma once

#include <string>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// Writes report.html and report.json into the folder, each whole or not at all, with the suffix behind their names.
// Empty when both are there, else which one is not and why.
std::string write_reports(const SurveyRecord& record, const std::string& folder, const std::string& suffix = "");

}  // namespace plc_host::survey
