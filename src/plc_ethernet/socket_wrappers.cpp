// Names of the driver's own for the system's socket calls; arguments and results pass through unchanged. What they open
// is closed in a program that the host starts: only the host itself talks to its controller.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "plc_ethernet.h"

namespace {

// For systems that cannot do it at once; passes the descriptor on.
int close_on_exec(int descriptor) {
  if (descriptor >= 0) fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
}

}  // namespace

ssize_t ev_recv(int socket_fd, void* buffer, size_t length) { return recv(socket_fd, buffer, length, 0); }

ssize_t ev_send(int socket_fd, const void* buffer, size_t length) { return send(socket_fd, buffer, length, 0); }

ssize_t ev_recvfrom(int socket_fd, void* buffer, size_t length, int flags, struct sockaddr* address,
                    socklen_t* address_length) {
  return recvfrom(socket_fd, buffer, length, flags, address, address_length);
}

ssize_t ev_sendto(int socket_fd, const void* buffer, size_t length, int flags, const struct sockaddr* address,
                  socklen_t address_length) {
  return sendto(socket_fd, buffer, length, flags, address, address_length);
}

int ev_socket(int domain, int type, int protocol) {
  const int socket_fd = socket(domain, type | SOCK_CLOEXEC, protocol);
  // Linux before 2.6.27 takes the flag for a part of the type.
  return socket_fd < 0 && errno == EINVAL ? close_on_exec(socket(domain, type, protocol)) : socket_fd;
}

int ev_connect(int socket_fd, const struct sockaddr* address, socklen_t address_length) {
  return connect(socket_fd, address, address_length);
}

int ev_setsockopt(int socket_fd, int level, int option, const void* value, socklen_t value_length) {
  return setsockopt(socket_fd, level, option, value, value_length);
}

int ev_bind(int socket_fd, const struct sockaddr* address, socklen_t address_length) {
  return bind(socket_fd, address, address_length);
}

int ev_listen(int socket_fd, int backlog) { return listen(socket_fd, backlog); }

int ev_accept(int socket_fd, struct sockaddr* address, socklen_t* address_length) {
  const int accepted = accept4(socket_fd, address, address_length, SOCK_CLOEXEC);
  // Linux before 2.6.28, on ARM before 2.6.36.
  return accepted < 0 && errno == ENOSYS ? close_on_exec(accept(socket_fd, address, address_length)) : accepted;
}

struct hostent* ev_gethostbyname(const char* name) {
  return gethostbyname(name);
}

int ev_close_handel(int socket_fd) { return close(socket_fd); }

int ev_closesocket(int socket_fd) { return close(socket_fd); }
