// Everything that the gateway counts: written by the edge node, shown by the metrics and on the node itself.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

struct GroupCounters {
  uint64_t polls = 0;
  uint64_t skipped = 0;  // their turn came while the last one was not done
  uint64_t failed = 0;   // the controller was lost during them
  Ms last_ms = 0;        // how long the last one took
  Ms longest_ms = 0;
};

struct Counters {
  // controller
  bool controller_alive = false;
  uint64_t reads = 0;  // of pieces: a call of the driver each
  uint64_t values_read = 0;
  uint64_t values_bad = 0;
  uint64_t controller_losses = 0;
  uint64_t failures[plc_client::kReasons] = {};  // of variables and links, by reason
  std::vector<GroupCounters> groups;
  // broker
  bool broker_connected = false;
  bool births_out = false;  // data may be published
  uint64_t broker_connects = 0;
  uint64_t broker_losses = 0;
  uint64_t broker_refused = 0;  // connects that failed
  uint64_t messages = 0;
  uint64_t values_live = 0;
  uint64_t values_historical = 0;
  uint64_t births = 0;  // of the node
  uint64_t device_births = 0;
  uint64_t node_birth_bytes = 0;  // of the last one, as the broker counts them
  uint64_t device_birth_bytes = 0;
  uint64_t rebirths = 0;
  uint64_t fences_sent = 0;
  uint64_t fences_acknowledged = 0;
  uint64_t fences_overdue = 0;  // a broker that took them and never answered
  uint64_t last_bd_seq = 0;
  uint64_t unfenced_values = 0;  // published, not yet known to be at the broker
  // commands, by result: "done", "failed", "unknown", and refusals by their kind
  std::map<std::string, uint64_t> commands;
};

}  // namespace plc_gateway
