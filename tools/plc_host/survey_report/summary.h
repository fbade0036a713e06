// What a survey comes to in plain sentences, for whoever was not there. Names in them are as they came from outside.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// What was found, a sentence each.
std::vector<std::string> found_sentences(const SurveyRecord& record);

// Whether the guarded build can be used here, as one sentence; by a survey that is not whole it can so far.
std::string verdict_sentence(const SurveyRecord& record);

// "2 of 36000 rounds of reads lost, 90 values not read, the longest gap 4.2 s"
std::string losses_text(const Endurance& endurance);

// "9 of 18 turns were left out, because a round lasted longer than the period"; "" where each turn had its round.
std::string turns_text(const Endurance& endurance);

// "; 2 replies were none of ours and were dropped; 1 reply did not come to its end", "" where all were ours and whole.
std::string strays_text(const HeadCounts& heads);

// "14 of 140 reads were refused, and answered when asked again", "14 of 140 reads were refused, 12 of them answered
// when asked again"; "" where no refusal comes and goes.
std::string refusals_text(const HeadCounts& heads);

// "The survey ended before 12 of them were read in a batch too, as hosts read them."; "" where the step came to its
// end.
std::string unbatched_text(const Variables& variables);

// A step of the survey by the name that reports have for it.
struct NamedStep {
  std::string name;
  Step step;
};
std::vector<NamedStep> steps_of(const SurveyRecord& record);

// Whether anything at all was measured by it.
bool has_figures(const Step& step);

}  // namespace plc_host::survey
