// Shares out descriptors.
#include "tools/plc_sim/descriptors.h"

#include <sys/resource.h>

#include <algorithm>

#include "tools/plc_sim/server/server.h"

namespace plc_sim {

Shares shares_of(size_t descriptors) {
  constexpr size_t kOwn = 32;  // streams, loop, both listeners, files, and the connections that fill a backlog
  constexpr size_t kFewest = 4;
  const size_t free = std::max(descriptors, kOwn + kFewest) - kOwn;
  Shares shares{};
  const auto visitors = static_cast<unsigned>(std::max<size_t>(free / 4, 2));
  shares.visitors.connections = std::min(shares.visitors.connections, visitors);
  shares.visitors.connections_per_address =
      std::min(shares.visitors.connections_per_address, std::max(visitors / 2, 1U));
  shares.connections = std::min<size_t>(kMostConnections, free - shares.visitors.connections);
  return shares;
}

Shares own_shares() {
  rlimit limit{};
  const bool is_known = getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  constexpr size_t kPlenty = 1024;
  return shares_of(is_known ? static_cast<size_t>(limit.rlim_cur) : kPlenty);
}

}  // namespace plc_sim
