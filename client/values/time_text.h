// Times of day as results show them.
#pragma once

#include <chrono>
#include <string>

namespace plc_client::core {

using WallTime = std::chrono::system_clock::time_point;

// For people: "08:30:00.123", in the local time zone.
std::string local_time_text(WallTime time);

// For programs: "2026-11-21T08:30:00.123Z".
std::string utc_time_text(WallTime time);

}  // namespace plc_client::core
