// What the page of a survey has of its own in style, put into the program by the build.
#pragma once

#include <string_view>

namespace plc_host::survey {

extern const std::string_view kSurveyStyle;

}  // namespace plc_host::survey
