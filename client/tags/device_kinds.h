// The numbers that tag records have for the memories that rules are made of.
#pragma once

#include <cstdint>

namespace plc_client::core {

inline constexpr uint8_t kDmDevice = 6;
inline constexpr uint8_t kMrDevice = 17;
inline constexpr uint8_t kLrDevice = 18;
inline constexpr uint8_t kEmDevice = 23;
inline constexpr uint8_t kNoDevice = 30;

}  // namespace plc_client::core
