// Which controller is meant by an address as people write it.
#pragma once

#include <cstdint>
#include <string>

#include "base/network_address.h"

namespace plc_host {

// HOST or HOST:PORT, from is who says it. Throws HostError for anything else, and for what the driver cannot reach.
plc_base::HostPort split_controller_address(const std::string& text, const std::string& from);

// The number of an IPv4 address, or of the host that the system knows by this name. Throws HostError.
uint32_t find_controller(const std::string& host);

}  // namespace plc_host
