// How the descriptors that the process may have are shared out among hosts and visitors of the page.
#pragma once

#include <cstddef>

#include "tools/plc_sim/page/web_server.h"

namespace plc_sim {

struct Shares {
  size_t connections;  // of hosts
  WebLimits visitors;
};

// Neither side can take what the other one needs; what plc-sim itself opens is set aside.
Shares shares_of(size_t descriptors);

// Of the descriptors that this process may have.
Shares own_shares();

}  // namespace plc_sim
