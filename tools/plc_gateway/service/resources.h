// What the gateway needs of the system before it begins: its loop's library ends the process without a word where it
// lacks something later.
#pragma once

#include <uv.h>

namespace plc_gateway {

// Throws GatewayError where there are too few descriptors or threads, or where files may not become large enough.
// Before any other call of libuv.
void require_resources();

// With the threads that the loop asks names of and reads files in. Throws GatewayError.
void begin_loop(uv_loop_t* loop);

}  // namespace plc_gateway
