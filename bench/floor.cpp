// The floor of floor.h.
#include "bench/floor.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bench/answer_table.h"
#include "bench/peer.h"

namespace bench {
namespace {

constexpr time_t kReceiveTimeoutS = 10;

// Everything that the peer has recorded so far; a request is in the pipe before its answer is sent.
Requests read_recorded(int record_fd) {
  Requests requests;
  uint32_t length = 0;
  while (read(record_fd, &length, sizeof length) == sizeof length) {
    std::vector<uint8_t> request(length);
    if (read(record_fd, request.data(), length) != static_cast<ssize_t>(length)) break;
    requests.push_back(request);
  }
  return requests;
}

bool is_readable(int socket_fd, time_t seconds) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket_fd, &readable);
  timeval timeout{seconds, 0};
  return select(socket_fd + 1, &readable, nullptr, nullptr, &timeout) > 0;
}

bool exchange(const std::vector<uint8_t>& request, int socket_fd, uint8_t* reply) {
  if (is_readable(socket_fd, 0)) return false;
  return send(socket_fd, request.data(), request.size(), 0) == static_cast<ssize_t>(request.size()) &&
         is_readable(socket_fd, kReceiveTimeoutS) && recv(socket_fd, reply, kFrameBytes, 0) > 0;
}

}  // namespace

Requests record_requests(Host::Operation operation) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
    std::perror("pipe");
    std::exit(1);
  }
  const Listener listener;
  const pid_t peer = start_peer(listener, ends[1]);
  Requests requests;
  {
    Host host(listener.port);
    host.repeat(operation, 1);  // connects: the directory requests come first
    read_recorded(ends[0]);
    host.repeat(operation, 1);
    requests = read_recorded(ends[0]);
  }
  waitpid(peer, nullptr, 0);
  close(ends[0]);
  close(ends[1]);
  close(listener.fd);
  return requests;
}

void repeat_floor(const Requests& requests, int socket_fd, uint32_t count) {
  uint8_t reply[kFrameBytes];
  for (uint32_t i = 0; i < count; ++i) {
    for (const std::vector<uint8_t>& request : requests) {
      if (!exchange(request, socket_fd, reply)) {
        std::fprintf(stderr, "a floor exchange failed\n");
        std::exit(1);
      }
    }
  }
}

}  // namespace bench
