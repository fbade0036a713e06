// What the client library read, as samples.
#pragma once

#include <cstdint>
#include <vector>

#include "client/plc_client.h"
#include "tools/plc_gateway/model/variable.h"
#include "tools/plc_gateway/node/seams.h"

namespace plc_gateway {

Ms wall_ms_of(plc_client::TimePoint time);

// Whether a reading failed because the controller did not answer as one, and not because of the variable.
// is_connected: the connection stood behind the read.
bool is_of_the_link(plc_client::Reason reason, bool is_connected);

class SampleMaker {
 public:
  // Adds the variable's sample. A text that is no UTF-8 is not good: what is published is UTF-8, and another text is
  // not what the controller has.
  void add(uint32_t index, const Variable& variable, const plc_client::Reading& reading, std::vector<Sample>& samples);

 private:
  std::vector<uint64_t> elements_;
};

}  // namespace plc_gateway
