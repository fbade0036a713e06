// A driver library of functions in this process, which notes the requests it gets.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "client/driver/driver_library.h"

namespace plc_client_test {

struct FakeCall {
  char kind;  // 'r', 'w' or 'b'
  uint8_t reg_type;
  uint32_t address;
  uint32_t count;
  std::string data;  // first bytes of the host's buffer at the call
};

// What the fake does. Reset by make_fake_library.
struct FakeDriver {
  std::vector<FakeCall> calls;
  std::vector<uint32_t> codes;     // of the calls in order; 0 when they are used up
  bool lose_connection = false;    // whatever is called, the connection is closed behind it
  std::vector<std::string> lines;  // printed by the calls in order; "" prints none
  std::set<uint32_t> refused_ids;  // plain registers whose names are refused, with the guarded build's line
  std::function<void(const RegRequest&, RegValue&)> on_read;
  std::function<void(BatchReadRequest*, int32_t)> on_batch;
};

FakeDriver& fake_driver();
plc_client::core::DriverLibrary make_fake_library(bool is_guarded = false);

}  // namespace plc_client_test
