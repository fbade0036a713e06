// The peer of peer.h.
#include "bench/peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "bench/answer_table.h"

namespace bench {
namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

bool record_request(int record_fd, const uint8_t* request, uint32_t length) {
  return write(record_fd, &length, sizeof length) == sizeof length &&
         write(record_fd, request, length) == static_cast<ssize_t>(length);
}

}  // namespace

Listener::Listener() : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), port(0) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 || listen(fd, 1) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    fail("listener");
  }
  port = ntohs(address.sin_port);
}

void answer_one_connection(const Listener& listener, int record_fd) {
  AnswerTable answers;
  const int socket_fd = accept(listener.fd, nullptr, nullptr);
  if (socket_fd < 0) fail("accept");
  const int no_delay = 1;
  setsockopt(socket_fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, sizeof no_delay);
  uint8_t request[kFrameBytes];
  ssize_t length = 0;
  while ((length = recv(socket_fd, request, sizeof request, 0)) > 0) {
    if (record_fd != kRecordNothing && !record_request(record_fd, request, static_cast<uint32_t>(length))) {
      fail("record");
    }
    const Answer answer = answers.find(request, static_cast<size_t>(length));
    if (answer.length == 0) {
      std::fprintf(stderr, "a request that the table does not know\n");
      std::exit(1);
    }
    if (send(socket_fd, answer.bytes, answer.length, MSG_NOSIGNAL) < 0) break;
  }
  close(socket_fd);
}

pid_t start_peer(const Listener& listener, int record_fd) {
  std::fflush(stdout);
  const pid_t child = fork();
  if (child < 0) fail("fork");
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    answer_one_connection(listener, record_fd);
    std::_Exit(0);
  }
  return child;
}

void pin_to_one_processor() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) fail("processors");
  size_t chosen = 0;
  for (size_t cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &allowed)) chosen = cpu;
  }
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(chosen, &one);
  if (sched_setaffinity(0, sizeof one, &one) != 0) fail("pinning");
}

}  // namespace bench
