// The files of the page, put into the program by the build.
#pragma once

#include <string_view>

namespace plc_sim {

extern const std::string_view kIndexHtml;
extern const std::string_view kPageCss;
extern const std::string_view kPageJs;

}  // namespace plc_sim
