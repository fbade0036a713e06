// The sockets and files of plc_sim_process.h.
#include "tests/tools/plc_sim/plc_sim_process.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/tools/plc_sim/sim_support.h"

namespace plc_sim::test {
namespace {

sockaddr_in local_address(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

}  // namespace

PlcSimProcess::PlcSimProcess(const std::vector<std::string>& arguments)
    : SimProcess(PLC_SIM_PROGRAM, arguments, Errors::kKept) {}

HostSocket::HostSocket(uint16_t port) {
  descriptor_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval wait{5, 0};
  setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
  const sockaddr_in address = local_address(port);
  if (connect(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(descriptor_);
    descriptor_ = -1;
  }
}

HostSocket::~HostSocket() {
  if (descriptor_ >= 0) close(descriptor_);
}

void HostSocket::send(const Bytes& bytes) const { ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

Bytes HostSocket::receive() const {
  Bytes bytes(8192);
  const ssize_t count = recv(descriptor_, bytes.data(), bytes.size(), 0);
  bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return bytes;
}

Bytes HostSocket::exchange(std::string_view frame) const {
  send(from_hex(frame));
  return receive();
}

bool connects_within(uint16_t port, int milliseconds) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const sockaddr_in address = local_address(port);
  bool is_done = connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  if (!is_done) {
    pollfd ready{descriptor, POLLOUT, 0};
    is_done = poll(&ready, 1, milliseconds) == 1 && (ready.revents & POLLERR) == 0;
  }
  close(descriptor);
  return is_done;
}

}  // namespace plc_sim::test
