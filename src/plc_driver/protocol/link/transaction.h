// One transaction on the connection: drain, send, wait, receive. Two builds of it stand behind this header: by order
// (the contract) and guarded.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Discards stale input. By order: at most 512 bytes; returns select's result when that is 0 or -1, else what recv
// returned. Guarded: all of it; returns 0, or -1 behind a printed line when that meets the end of the connection or
// passes 65536 bytes.
PLC_PRIVATE_API int EmptyBuffer(int socket_fd);

// Drains, then sends. Returns the bytes sent; -1 behind a printed line, connection closed.
PLC_PRIVATE_API int send_e(const uint8_t* bytes, uint32_t length, ConnContext* conn);

// One request, one reply of at most 4096 bytes. Returns 0 with the reply's bytes and length stored; -1 on any failure.
// By order: length 0 when the controller closed; docs/wire_protocol.md lists which failures close the connection.
// Guarded: the reply is one whole frame that answers this request; every failure closes the connection behind a
// printed line.
PLC_PRIVATE_API int TransRecvSockBuff(const uint8_t* request, uint32_t length, uint8_t* reply, int32_t* reply_length,
                                      ConnContext* conn);
}
