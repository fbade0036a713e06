// What the gateway tells of itself, in the text form of Prometheus.
#pragma once

#include <string>
#include <vector>

#include "tools/plc_gateway/journal/journal.h"
#include "tools/plc_gateway/model/counters.h"

namespace plc_gateway {

// All of it at one moment.
struct MetricsView {
  const Counters* counters = nullptr;
  JournalCounters journal;
  std::vector<Ms> periods;  // of the groups
  std::string version, group, edge_node, device;
  uint64_t variables = 0;
  uint64_t messages_too_long = 0;  // from the broker, dropped
  uint64_t reloads = 0;            // of the configuration
  uint64_t reloads_refused = 0;    // for its mistakes
  Ms started = 0;                  // the gateway, on the wall clock
  Ms now = 0;
};

std::string metrics_text(const MetricsView& view);

}  // namespace plc_gateway
