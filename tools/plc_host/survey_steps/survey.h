// A survey of a controller from its first connect to the record of what was found.
#pragma once

#include "tools/plc_host/command_output.h"
#include "tools/plc_host/host_options.h"
#include "tools/plc_host/survey/declared.h"
#include "tools/plc_host/survey/survey_plan.h"
#include "tools/plc_host/survey/survey_record.h"
#include "wire/captures/pcapng_writer.h"

namespace plc_host::survey {

// Makes all steps, or as many as a stop signal or the controller lets it, and fills the rest of the record. Returns
// whether a stop signal ended it.
bool make_survey(const SurveyPlan& plan, Declarations& declared, const HostOptions& options, CommandOutput& output,
                 plc_sim::PcapngWriter& capture, SurveyRecord& record);

}  // namespace plc_host::survey
