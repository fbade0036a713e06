// What passes between the driver and its socket, seen from outside: the driver's calls of the system are watched on
// their way, and what belongs to one request is put together as one exchange.
#ifndef TESTS_FAULTS_EXCHANGE_TAP_H
#define TESTS_FAULTS_EXCHANGE_TAP_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace plc_test {

using Bytes = std::vector<uint8_t>;

// One request of the driver and what it took for its reply. Times are microseconds since the program began.
struct Exchange {
  uint64_t number = 0;
  unsigned long connection = 0;  // counted from the first connect on
  int socket_fd = -1;
  long drain_us = 0;
  int waiting = 0;  // bytes that waited before the drain looked
  Bytes drained;
  long sent_us = 0;
  int left_behind = 0;  // bytes that waited when the request was sent
  Bytes request;
  long received_us = 0;
  bool has_received = false;  // a receive was made, and did not fail
  Bytes reply;
  bool is_own_reply = false;  // see is_reply_to

  Exchange();
  void clear();
};

// Whether the bytes are the reply to this request, whole and nothing else: length and complement fit, and sequence
// number, class and command are the request's.
bool is_reply_to(const Bytes& request, const Bytes& reply);

// The exchanges of this process, one behind the other. The last ones are kept for whoever looks into a failure.
class ExchangeTap {
 public:
  static ExchangeTap& instance();

  // Told of every exchange when it has ended: with its receive, else with the next exchange or the end of the call.
  using Observer = void (*)(void* context, const Exchange& exchange);
  void observe(Observer observer, void* context);

  // The host's call is over.
  void end_call() { end_exchange(); }

  // A line among the exchanges: what the host did, or was done to the controller.
  void note(const std::string& text);

  void print_last(std::FILE* out) const;

  // From the watched calls.
  void on_connect(int socket_fd);
  void on_drain(int socket_fd);
  void on_send(int socket_fd, const uint8_t* bytes, size_t count);
  void on_receive(int socket_fd, const uint8_t* bytes, size_t count);

 private:
  struct Line {
    bool is_note = true;
    std::string note;
    Exchange exchange;
  };

  ExchangeTap();
  void end_exchange();
  Line& next_line();
  bool is_current(int socket_fd) const { return is_open_ && current_.socket_fd == socket_fd; }

  Observer observer_ = nullptr;
  void* context_ = nullptr;
  Exchange current_;
  bool is_open_ = false;
  uint64_t exchanges_ = 0;
  unsigned long connections_ = 0;
  std::vector<Line> lines_;  // a ring
  uint64_t line_count_ = 0;
};

}  // namespace plc_test

#endif
