// What a reply alone shows: how its size stands to what was asked, its status, and whether a controller sent it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tools/plc_host/survey/probe.h"
#include "wire/request.h"

namespace plc_host::survey {

// How a reply's size stands to what was asked. A reply to a write does not show by its size whether it refuses.
struct ReplyShape {
  bool is_complete = false;
  bool is_refused = false;
  bool is_full = false;   // refused, with a record for each name or bytes for each value all the same
  bool is_part = false;   // of names: more than a head, and no record for each of them
  size_t behind = 0;      // bytes behind the values
  bool is_exact = false;  // complete, of names or programs: counted as they are, and the reply ends with the last one
};

ReplyShape shape_of(const plc_sim::Request& request, const plc_sim::Bytes& reply);

// Bytes 12 and 13; 0 when they did not come.
uint16_t status_of(const plc_sim::Bytes& reply);

// Only a controller gives this reply: an echo has the head of each request, and a flood has heads for nobody.
bool is_speech(const plc_sim::Bytes& request, const ProbeReply& answer, const ReplyShape& shape);

}  // namespace plc_host::survey
