// Parts of the report's page that several of its sections have.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_host/survey/survey_record.h"

namespace plc_host::survey {

// A section with a note on its step where that was not made to its end; without content where it was not made at all.
std::string step_section(const std::string& title, const Step& step, const std::string& content);

// A name, quoted where blanks at its ends would not be seen.
std::string told_html(std::string_view name);

// HTML of texts from outside, separated by commas.
std::string html_list(const std::vector<std::string>& texts);

// A number, or what there is in its place.
std::string number_or(const std::optional<uint32_t>& number, const char* otherwise);

// p50, p99 and largest as cells of a table; "not measured" of no times.
std::vector<std::string> figure_cells(const std::vector<double>& times);

// A request and its reply, part by part of their heads, with what is not as the guarded build wants it marked. `name`
// is the frame's own on the page: "Evidence 1".
std::string frame_html(const std::string& name, const Frame& frame);

// The sections of each step's figures.
std::string link_html(const SurveyRecord& record);
std::string programs_html(const SurveyRecord& record);
std::string variables_html(const SurveyRecord& record);
std::string heads_html(const SurveyRecord& record);
std::string times_html(const SurveyRecord& record);
std::string splits_html(const SurveyRecord& record);
std::string limits_html(const SurveyRecord& record);
std::string writes_html(const SurveyRecord& record);
std::string hours_html(const SurveyRecord& record);

}  // namespace plc_host::survey
