// The TCP connection: connect and close.
#include "plc_driver/protocol/link/connection.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include "plc_driver/build_kind.h"
#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/text/bounded_text.h"
#include "plc_ethernet.h"

namespace plc {
namespace {

// Deliberately short: a controller that takes longer counts as absent (D15).
constexpr int kConnectWaitUs = 30000;
constexpr int kSendTimeoutUs = 50000;

void close_socket(int socket_fd) {
  if (socket_fd < 0) return;
  if (is_selectable(socket_fd)) FD_CLR(socket_fd, &stored_sockets);
  ev_close_handel(socket_fd);
}

void store_socket(ConnContext* conn, int socket_fd) {
  if (is_selectable(socket_fd)) FD_SET(socket_fd, &stored_sockets);
  conn->socket_fd = socket_fd;
}

void set_options(int socket_fd) {
  const linger reset_on_close = {1, 0};
  ev_setsockopt(socket_fd, SOL_SOCKET, SO_LINGER, &reset_on_close, sizeof reset_on_close);
  const timeval send_timeout = {0, kSendTimeoutUs};
  ev_setsockopt(socket_fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
  const int reuse = 1;
  ev_setsockopt(socket_fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
}

// Waits for a connect that is under way. The line to print when that fails, else null. The connect's own result is not
// asked for: a refused connect still counts as connected, and the first exchange reports it (D16). Guarded, it is left
// in errno.
const char* wait_connected(int socket_fd) {
  if (!is_selectable(socket_fd)) return "select error";
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket_fd, &readable);
  fd_set writable = readable;
  timeval timeout = {0, kConnectWaitUs};
  const int ready = select(socket_fd + 1, &readable, &writable, nullptr, &timeout);
  if (ready == -1) return "select error";
  if (ready == 0) return "select time out ";
  if constexpr (kGuarded) errno = 0;
  if (!FD_ISSET(socket_fd, &readable) && !FD_ISSET(socket_fd, &writable)) return nullptr;
  int pending_error = 0;
  socklen_t length = sizeof pending_error;
  const int asked = getsockopt(socket_fd, SOL_SOCKET, SO_ERROR, &pending_error, &length);
  if constexpr (kGuarded) errno = pending_error;
  return asked < 0 ? "getsockopt error" : nullptr;
}

sockaddr_in controller_address(const char* dotted, int tcp_port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(tcp_port));
  address.sin_addr.s_addr = inet_addr(dotted);
  return address;
}

constexpr uint32_t kDottedBytes = 16;

BoundedText<kDottedBytes> dotted_text(uint32_t ip) {
  BoundedText<kDottedBytes> text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text.append_decimal(ip >> shift & 0xFF);
    if (shift > 0) text.append(".");
  }
  return text;
}

}  // namespace

// -1 takes the number out of the host's record: no descriptor is closed twice or used after someone else got it.
void close_connection(ConnContext* conn) {
  close_socket(conn->socket_fd);
  conn->socket_fd = -1;
}

bool holds_own_socket(const ConnContext& conn) {
  return is_selectable(conn.socket_fd) && FD_ISSET(conn.socket_fd, &stored_sockets);
}

void close_stored_sockets() {
  for (int socket_fd = 0; socket_fd < FD_SETSIZE; ++socket_fd) {
    if (FD_ISSET(socket_fd, &stored_sockets)) close_socket(socket_fd);
  }
}

}  // namespace plc

using namespace plc;

extern "C" {

int SetupTCPComm(ConnContext* conn, uint32_t ip, int tcp_port) {
  const BoundedText<kDottedBytes> dotted = dotted_text(ip);
  print_server_address(dotted.bytes);
  const sockaddr_in address = controller_address(dotted.bytes, tcp_port);
  const int socket_fd = ev_socket(AF_INET, SOCK_STREAM, 0);
  const int asked = fcntl(socket_fd, F_GETFL, 0);
  const int flags = asked < 0 ? 0 : asked;
  fcntl(socket_fd, F_SETFL, flags | O_NONBLOCK);
  set_options(socket_fd);
  const int connected = ev_connect(socket_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  int connect_error = 0;
  if constexpr (kGuarded) connect_error = connected < 0 && errno != EINPROGRESS ? errno : 0;
  if (connected < 0 && errno == EINPROGRESS) {
    const char* failure = wait_connected(socket_fd);
    if (failure != nullptr) {
      print_line(failure);
      close_socket(socket_fd);
      return -1;
    }
    if constexpr (kGuarded) connect_error = errno;
  }
  fcntl(socket_fd, F_SETFL, flags);
  store_socket(conn, socket_fd);
  if constexpr (kGuarded) {
    if (connect_error != 0) {
      print_connect_error(connect_error);
      close_connection(conn);  // so that the first exchange has nothing to send on
    }
  }
  return 0;
}

int QuitSock(ConnContext* conn) {
  close_connection(conn);
  return -1;
}

void FlushBuff(uint32_t enable, const uint8_t* bytes, int32_t length) {
  if (bytes == nullptr || enable == 0) return;
  print_hex_dump(bytes, length);
}
}
