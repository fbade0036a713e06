// Connects as long as the driver would, and goes away again.
#include "client/driver/refused_port.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

namespace plc_client::core {
namespace {

constexpr int kConnectWaitMs = 30;

int connect_error(int descriptor, const sockaddr_in& place) {
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0) return 0;
  if (errno != EINPROGRESS) return errno;
  struct pollfd connected {
    descriptor, POLLOUT, 0
  };
  if (poll(&connected, 1, kConnectWaitMs) <= 0) return ETIMEDOUT;
  int error = 0;
  socklen_t length = sizeof error;
  return getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

}  // namespace

bool is_port_refused(uint32_t address, uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return false;
  sockaddr_in place{};
  place.sin_family = AF_INET;
  place.sin_port = htons(port);
  place.sin_addr.s_addr = htonl(address);
  const int error = connect_error(descriptor, place);
  close(descriptor);
  return error == ECONNREFUSED;
}

}  // namespace plc_client::core
