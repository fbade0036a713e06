// Formats times of day with milliseconds.
#include "client/values/time_text.h"

#include <cstdio>
#include <ctime>

namespace plc_client::core {
namespace {

constexpr int kFirstYear = 1900;

int milliseconds_of(WallTime time) {
  const auto all = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  return static_cast<int>(all % 1000);
}

}  // namespace

std::string local_time_text(WallTime time) {
  const time_t seconds = std::chrono::system_clock::to_time_t(time);
  struct tm parts {};
  localtime_r(&seconds, &parts);
  char text[64];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
                milliseconds_of(time));
  return text;
}

std::string utc_time_text(WallTime time) {
  const time_t seconds = std::chrono::system_clock::to_time_t(time);
  struct tm parts {};
  gmtime_r(&seconds, &parts);
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + kFirstYear, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds_of(time));
  return text;
}

}  // namespace plc_client::core
