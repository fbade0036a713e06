// The TCP connection: connect, drain, send, one exchange, close.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"
#include "plc_driver/protocol/frame_writer.h"
#include "plc_driver/protocol/reply_view.h"

extern "C" {

// Connects to ip (first dotted part in the most significant byte) and the low 16 bits of tcp_port, waiting at most 30
// ms. Returns 0 with the socket in conn->socket_fd, also when the connect was refused: the first exchange reports that.
// Returns -1 behind a printed line, socket_fd as it was, when the wait fails or runs out.
PLC_PRIVATE_API int SetupTCPComm(ConnContext* conn, uint32_t ip, int tcp_port);

// Discards at most 512 bytes of stale input. Returns select's result when that is 0 or -1, else what recv returned.
PLC_PRIVATE_API int EmptyBuffer(int socket_fd);

// Drains, then sends. Returns the bytes sent; -1 behind a printed line, connection closed.
PLC_PRIVATE_API int send_e(const uint8_t* bytes, uint32_t length, ConnContext* conn);

// One request, one reply of at most 4096 bytes. Returns 0 with the reply's length (0: the controller closed) stored and
// its bytes copied; -1 on any failure. docs/wire_protocol.md lists which failures close the connection.
PLC_PRIVATE_API int TransRecvSockBuff(const uint8_t* request, uint32_t length, uint8_t* reply, int32_t* reply_length,
                                      ConnContext* conn);

// Closes the connection. Returns -1.
PLC_PRIVATE_API int QuitSock(ConnContext* conn);

// Prints a hex dump on standard output unless bytes is null or enable is 0.
PLC_PRIVATE_API void FlushBuff(uint32_t enable, const uint8_t* bytes, int32_t length);
}

namespace plc {

// True when conn holds a socket that the driver stored there and has not closed since.
bool holds_own_socket(const ConnContext& conn);

// Completes the request's head (length_field is what it says of the request's length), takes a sequence number and
// exchanges it for a reply. False with nothing sent and no sequence number taken when the request did not fit its
// buffer; false with the connection flag cleared when the exchange failed; false when the reply is shorter than
// least_bytes.
bool exchange(FrameWriter* request, uint32_t length_field, ReplyBuffer* reply, int32_t least_bytes, ConnContext* conn);

// The same with the request's own length in the head.
bool exchange(FrameWriter* request, ReplyBuffer* reply, int32_t least_bytes, ConnContext* conn);

// The exchange alone, for requests with a head of their own. False, with the connection flag cleared, when it failed.
bool exchange_bytes(const uint8_t* request, uint32_t length, ReplyBuffer* reply, ConnContext* conn);

}  // namespace plc
