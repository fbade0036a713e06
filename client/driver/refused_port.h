// Whether anything listens on a controller's port.
#pragma once

#include <cstdint>

namespace plc_client::core {

// True when the machine at the address (in the host's byte order) refuses a connection to the port at once. Nothing is
// sent.
bool is_port_refused(uint32_t address, uint16_t port);

}  // namespace plc_client::core
