// The network side of the controller: connections, their judged requests, and faults that come between.
#pragma once

#include <uv.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "profile/profile.h"
#include "tools/plc_sim/controller/controller.h"
#include "tools/plc_sim/controller/faults.h"
#include "tools/plc_sim/controller/run_log.h"
#include "tools/plc_sim/controller/tally.h"
#include "tools/plc_sim/server/connection.h"
#include "tools/plc_sim/server/listener.h"
#include "wire/captures/traffic_observer.h"

namespace plc_sim {

constexpr size_t kMostConnections = 256;  // hosts of a machine are a few

class Server {
 public:
  using Answerer = std::function<Answer(Session&, const Bytes&)>;

  Server(uv_loop_t* loop, Answerer answerer, FaultBook& faults, Tally& tally, RunLog& log);

  // As a controller does that serves so many at a time, and turns one more away in this way.
  void serve_at_most(uint32_t connections, plc_profile::Turned one_more);

  // What a host asked for before it ended its side is answered, however late.
  void answer_half_closed() { finishes_ = true; }

  // When more connect, the connection that was silent for longest is closed.
  void limit_connections(size_t most) { most_connections_ = most; }

  // Empty when listening, else what went wrong.
  std::string listen(const std::string& host, uint16_t port) { return listener_.open(host, port); }
  uint16_t port() const { return listener_.port(); }
  // Before it listens: the largest segment that hosts are told of.
  void announce_segment(uint32_t bytes) { listener_.announce_segment(bytes); }
  void set_observer(TrafficObserver* observer) { observer_ = observer; }

  // Arms the fault; those of the backlog happen at once. False when too many are armed.
  bool arm(const Fault& fault);
  void clear_faults();

  // Closes everything that would keep the loop running.
  void stop();

 private:
  Delivery on_request(Connection& connection, const Bytes& frame);
  ConnectionEvents make_events();
  void accept(int descriptor);
  void make_room();
  bool turn_away(int descriptor);
  void note(unsigned connection, const std::string& text);
  size_t served() const;
  void listen_as_served();
  void recover_after(unsigned wait_ms);
  void recover();

  uv_loop_t* loop_;
  Answerer answerer_;
  FaultBook& faults_;
  Tally& tally_;
  RunLog& log_;
  ConnectionEvents events_;
  Listener listener_;
  uv_timer_t recovery_timer_{};
  TrafficObserver* observer_ = nullptr;
  std::set<Connection*> connections_;
  unsigned next_number_ = 1;
  size_t most_connections_ = kMostConnections;
  std::optional<uint32_t> most_served_;
  plc_profile::Turned one_more_ = plc_profile::Turned::kRefused;
  bool finishes_ = false;
  bool is_full_ = false;  // and the port closed for that
  bool is_stopping_ = false;
};

}  // namespace plc_sim
