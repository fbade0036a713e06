// The peer of the benchmarks: a listener on 127.0.0.1 and a loop that answers one connection from the table.
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace bench {

// A listening socket on 127.0.0.1 and a port that the system chose. Ends the program when there is none.
struct Listener {
  Listener();

  int fd;
  uint16_t port;
};

// No requests are recorded.
constexpr int kRecordNothing = -1;

// Accepts one connection and answers its requests until it ends, two system calls each. Each request also goes to
// record_fd, its length as 32 bits of the machine before it.
void answer_one_connection(const Listener& listener, int record_fd);

// The same in a child process that ends with this one. Returns the child's id.
pid_t start_peer(const Listener& listener, int record_fd);

// Binds the calling process, and what it starts from now on, to one of the processors it may use. Ends the program
// when that fails.
void pin_to_one_processor();

}  // namespace bench
