// The report for programs: everything in the record, and the sentences of the page.
#pragma once

#include <nlohmann/json_fwd.hpp>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// survey_report.schema.json describes it. A figure that was not measured is null.
nlohmann::ordered_json report_json(const SurveyRecord& record);

}  // namespace plc_host::survey
