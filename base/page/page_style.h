// The style that all reports share, put into the program by the build.
#pragma once

#include <string_view>

namespace plc_base {

extern const std::string_view kPageStyle;

}  // namespace plc_base
