// The TCP connection: connect and close.
#pragma once

#include <sys/select.h>

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Connects to ip (first dotted part in the most significant byte) and the low 16 bits of tcp_port, waiting at most 30
// ms. Returns 0 with the socket in conn->socket_fd, also when the connect was refused: the first exchange reports that.
// Returns -1 behind a printed line, socket_fd as it was, when the wait fails or runs out.
PLC_PRIVATE_API int SetupTCPComm(ConnContext* conn, uint32_t ip, int tcp_port);

// Closes the connection. Returns -1.
PLC_PRIVATE_API int QuitSock(ConnContext* conn);

// Prints a hex dump on standard output unless bytes is null or enable is 0.
PLC_PRIVATE_API void FlushBuff(uint32_t enable, const uint8_t* bytes, int32_t length);
}

namespace plc {

// select can only take these; others count as its failing.
inline bool is_selectable(int socket_fd) { return socket_fd >= 0 && socket_fd < FD_SETSIZE; }

// True when conn holds a socket that the driver stored there and has not closed since.
bool holds_own_socket(const ConnContext& conn);

// Closes the connection and stores -1 in its place.
void close_connection(ConnContext* conn);

// Closes every socket that the driver stored in a context and has not closed.
void close_stored_sockets();

}  // namespace plc
