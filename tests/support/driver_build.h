// Which build of the driver a test program runs against, and values that the two builds differ in.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "plc_driver.h"

namespace plc_test {

inline bool is_guarded() {
  constexpr std::string_view kGuarded = " guarded";
  const std::string_view build = plc_driver_build();
  return build.size() > kGuarded.size() && build.substr(build.size() - kGuarded.size()) == kGuarded;
}

// With PLC_EXPECT_CONTRACT in the environment every test expects what the contract does, of the guarded build too: so
// the table of differences is checked (tests/driver/guarded/check_differences.py).
inline bool expects_contract() { return !is_guarded() || std::getenv("PLC_EXPECT_CONTRACT") != nullptr; }

// What a test expects, where that is not the same of both builds. The test stands in
// tests/driver/guarded_differences.csv.
template <typename Value>
Value by_build(Value contract, Value guarded) {
  return expects_contract() ? contract : guarded;
}

// How long a test waits for a reply that its controller sends; short where tests wait in vain, because they expect of
// the guarded build what the contract does.
inline uint32_t reply_wait_s() { return expects_contract() && is_guarded() ? 1 : 10; }

}  // namespace plc_test
