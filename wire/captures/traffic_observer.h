// What sees the bytes of every connection in both directions, as they were sent and received.
#pragma once

#include <cstdint>

#include "wire/wire.h"

namespace plc_sim {

class TrafficObserver {
 public:
  TrafficObserver() = default;
  virtual ~TrafficObserver() = default;
  TrafficObserver(const TrafficObserver&) = delete;
  TrafficObserver& operator=(const TrafficObserver&) = delete;
  virtual void opened(unsigned connection, uint16_t peer_port) = 0;
  virtual void received(unsigned connection, const Bytes& bytes) = 0;
  virtual void sent(unsigned connection, const Bytes& bytes) = 0;
  virtual void closed(unsigned connection) = 0;
};

}  // namespace plc_sim
