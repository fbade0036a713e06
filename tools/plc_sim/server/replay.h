// Answers requests as a captured controller did.
#pragma once

#include <vector>

#include "tools/plc_sim/controller/controller.h"
#include "wire/captures/pcap_reader.h"

namespace plc_sim {

class Replay {
 public:
  explicit Replay(std::vector<Exchange> exchanges) : exchanges_(std::move(exchanges)) {}

  // The reply that was captured for the same request, its sequence number apart: the next one after the last answer,
  // or the first one when the capture has none further on. A write with other values is answered as the captured
  // write to the same place. What is not in the capture is refused. Of a reply 16384 bytes are given, and its sequence
  // number is the request's only where both have one.
  Answer handle(Session& session, const Bytes& frame);

 private:
  const Exchange* find(const Bytes& frame);

  std::vector<Exchange> exchanges_;
  size_t next_ = 0;
};

}  // namespace plc_sim
