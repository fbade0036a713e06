// The network of the endurance program: a clock of its own, connections that end in this process, and the order in
// which things happen on them.
//
// The driver's calls of the system (endure_system.cpp) come here. Connections are the kernel's: their ends are real
// sockets, most of them a pair of stream sockets that is put in the place of the driver's, some of them TCP over the
// loopback device. Time is not: a wait moves the clock to whatever happens next, so that a time-out of a second costs
// nothing, a reply may be late by any time, and a seed repeats a run to the microsecond.
#pragma once

#include <sys/types.h>

#include <deque>
#include <memory>

#include "tests/driver/endure/referee/endure_basics.h"

namespace plc_endure {

constexpr int64_t kNever = INT64_MAX;

enum class Ending { kNone, kClose, kReset };

// What the controller sends in one piece, and what then becomes of the connection.
struct Unit {
  int64_t due_us = 0;
  Bytes bytes;
  Ending ending = Ending::kNone;
  bool joins_next = false;  // nothing may come between it and the next one that is sent
  uint64_t born = 0;        // exchanges before it was made
};

// A request on its way to being carried out. What its sender meant by it travels along.
struct Pending {
  int64_t due_us = 0;
  Bytes bytes;
  std::shared_ptr<const void> meaning;
};

struct Link {
  unsigned number = 0;
  int driver_fd = -1;      // the driver's end; -1 once the driver has closed it
  int controller_fd = -1;  // -1 once the controller has closed it
  bool is_tcp = false;
  bool has_ended = false;    // the controller sends no more
  bool is_blocked = false;   // the driver has to take bytes before more go in
  bool is_in_group = false;  // what was delivered last joins what is delivered next
  size_t group_end = 0;      // of the units: where the group that is being sent goes on, 0: none is
  uint64_t sent = 0;         // bytes to the driver
  uint64_t received = 0;     // bytes that the driver has taken
  std::deque<Pending> requests;
  std::deque<Unit> units;
  Bytes held;  // a reply that waits for the next one to overtake it
};

// How a connect ends.
struct ConnectFate {
  enum class Kind { kAccepted, kRefused, kUnreachable } kind = Kind::kAccepted;
  int64_t after_us = 0;  // accepted only then
  bool is_tcp = false;
};

// The controller behind the network.
class Peer {
 public:
  virtual ~Peer() = default;
  virtual ConnectFate connecting() = 0;
  // Says when the request will be carried out, kNever: lost.
  virtual int64_t arrived(Link& link, const Bytes& request) = 0;
  virtual void serve(Link& link, const Pending& request) = 0;
  // The host's machine does something else for a while, now and then.
  virtual int64_t stall_us() = 0;
};

class Network {
 public:
  // Of the calling thread: each thread that makes calls has a host, a controller and a clock of its own.
  static Network& instance();

  void set_peer(Peer* peer) { peer_ = peer; }
  // While a call of the host is under way, the driver's calls of the system are the network's. What is sent in it
  // carries its meaning, as it is then.
  void begin_call(std::shared_ptr<const void> (*meaning)(void* context), void* context);
  void end_call() { is_in_call_ = false; }
  // Asked by calls of the whole program, before and after it forks: each thread makes its own network, with its own
  // port, when it needs one.
  static bool is_in_call() { return is_in_call_; }
  // Of the call under way or over: how much time the host's machine took for something else.
  int64_t stalled_us() const { return stalled_us_; }

  int64_t now_us() const { return now_us_; }
  // Lets time pass and happen what is due meanwhile.
  void pass(int64_t us);
  void send(Link& link, Unit unit);
  // What was to be sent on it later is not.
  static void drop_units(Link& link);
  // Ends all connections at once.
  void reset_all();
  Journal& journal() { return journal_; }
  Link* link_of(int driver_fd) const;
  // Whether a request on this connection meets nothing of what was sent for earlier ones but bytes that wait already,
  // at most so many.
  bool is_quiet(int driver_fd, uint64_t most_waiting) const;
  // The same for every connection that the driver has.
  bool is_quiet(uint64_t most_waiting) const;

  // Descriptors that the driver has left open behind it, counted and closed when it connects anew.
  unsigned long left_open() const { return left_open_; }
  // Receives that would have waited for ever.
  unsigned long stuck() const { return stuck_; }
  unsigned long connections() const { return connection_count_; }
  unsigned long tcp_connections() const { return tcp_count_; }
  // Counts what is sent by the controller's side: no unit is delivered when it is too old (see endure_faults.h).
  void count_exchange() { ++exchanges_; }
  uint64_t exchanges() const { return exchanges_; }

  // The driver's calls.
  int on_connect(int fd);
  int on_select(int fd, bool for_writing, int64_t timeout_us);
  ssize_t on_send(int fd, const uint8_t* bytes, size_t count, int flags);
  ssize_t on_receive(int fd, uint8_t* bytes, size_t count, int flags);
  void on_close(int fd);
  void tick();

 private:
  struct Connecting {
    int fd = -1;
    int64_t due_us = 0;
    bool is_tcp = false;
  };

  Network();
  int64_t next_due() const;
  void run_due();
  void run_first(int64_t limit_us, bool* has_run);
  bool is_ready(int fd, bool for_writing) const;
  void establish(int fd, bool is_tcp);
  bool make_ends(int fd, bool is_tcp, Link* link);
  int refuse(int fd);
  void transmit(Link& link);
  void settle(const Link& link) const;
  void end(Link& link, Ending ending);
  void take_request(Link& link, const uint8_t* bytes, size_t count);
  void close_left_open();
  void remove_finished();

  Peer* peer_ = nullptr;
  static inline thread_local bool is_in_call_ = false;
  std::shared_ptr<const void> (*meaning_)(void*) = nullptr;
  void* meaning_context_ = nullptr;
  int64_t now_us_ = 1000000;
  int64_t stalled_us_ = 0;
  std::vector<std::unique_ptr<Link>> links_;
  std::vector<Connecting> connecting_;
  std::vector<int> driver_fds_;  // given to a connect and not closed yet
  int listener_ = -1;
  int closed_port_holder_ = -1;
  unsigned connection_count_ = 0;
  unsigned long tcp_count_ = 0;
  unsigned long left_open_ = 0;
  unsigned long stuck_ = 0;
  uint64_t exchanges_ = 0;
  Journal journal_;
};

}  // namespace plc_endure
