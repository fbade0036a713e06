// The floor: the four system calls of an exchange and nothing else, with the requests that the driver sends.
#pragma once

#include <cstdint>
#include <vector>

#include "bench/operations.h"

namespace bench {

using Requests = std::vector<std::vector<uint8_t>>;

// The requests that one run of the operation sends, recorded by a peer of its own. The driver is left on a connection
// that has ended.
Requests record_requests(Host::Operation operation);

// Performs the exchanges of these requests count times on a connected socket. Ends the program when one fails.
void repeat_floor(const Requests& requests, int socket_fd, uint32_t count);

}  // namespace bench
