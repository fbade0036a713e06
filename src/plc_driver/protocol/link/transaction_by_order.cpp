// The transaction of the contract: whatever one receive delivers is the reply to the last request.
#include <sys/socket.h>

#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/frames/wire_format.h"
#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/link/socket_wait.h"
#include "plc_driver/protocol/link/transaction.h"

using namespace plc;

extern "C" {

int EmptyBuffer(int socket_fd) {
  bool ready = false;
  const int result = wait_readable(socket_fd, {0, 0}, &ready);
  if (result == 0 || result == -1) return result;
  if (!ready) return 0;
  // One receive only: what it leaves is taken for part of the next reply (D17).
  return static_cast<int>(recv(socket_fd, EmptyBuff, sizeof EmptyBuff, 0));
}

int send_e(const uint8_t* bytes, uint32_t length, ConnContext* conn) {
  EmptyBuffer(conn->socket_fd);
  const ssize_t sent = send(conn->socket_fd, bytes, length, 0);
  if (sent < 0) {
    print_send_error();
    close_connection(conn);
    return -1;
  }
  return static_cast<int>(sent);
}

int TransRecvSockBuff(const uint8_t* request, uint32_t length, uint8_t* reply, int32_t* reply_length,
                      ConnContext* conn) {
  if (send_e(request, length, conn) < 0) return -1;
  // Longer waits than 2^31 - 1 seconds would be negative where time is 32 bits wide.
  const uint32_t seconds = conn->recv_timeout_s < INT32_MAX ? conn->recv_timeout_s : INT32_MAX;
  bool ready = false;
  const int result = wait_readable(conn->socket_fd, {static_cast<time_t>(seconds), 0}, &ready);
  if (result == -1 || result == 0) {
    print_line(result == -1 ? "--err--" : "--timeout--");
    close_connection(conn);
    return -1;
  }
  if (!ready) return -1;
  const ssize_t received = recv(conn->socket_fd, reply, kReplyBytes, 0);
  if (received < 0) return -1;  // the socket stays open and is forgotten by the next connect
  *reply_length = static_cast<int32_t>(received);
  return 0;
}
}
