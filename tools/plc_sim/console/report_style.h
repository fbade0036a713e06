// The style of the report's page, put into the program by the build.
#pragma once

#include <string_view>

namespace plc_sim {

extern const std::string_view kReportCss;

}  // namespace plc_sim
