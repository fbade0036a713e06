// Moments as text.
#include "tools/plc_gateway/model/utc_text.h"

#include <cstdio>
#include <ctime>

namespace plc_gateway {

std::string utc_text(Ms wall) {
  constexpr Ms kPerSecond = 1000;
  const auto seconds = static_cast<std::time_t>(wall / kPerSecond);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[40];
  const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(wall % kPerSecond));
  return text;
}

}  // namespace plc_gateway
