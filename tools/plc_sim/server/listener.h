// The listening socket: accepts connections, and can keep its backlog full or vanish on demand.
#pragma once

#include <uv.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace plc_sim {

class Listener {
 public:
  // `on_accept` gets the connected descriptor and owns it from then on.
  Listener(uv_loop_t* loop, std::function<void(int)> on_accept);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  // Port 0 takes a free one. Empty when listening, else what went wrong.
  std::string open(const std::string& host, uint16_t port);
  uint16_t port() const { return port_; }
  // Of every socket that is opened from now on: the largest segment that hosts are told of.
  void announce_segment(uint32_t bytes) { segment_bytes_ = static_cast<int>(bytes); }

  // Fills the backlog with connections of its own until a further one is held back; true when that was seen.
  bool hold();
  // Takes the held connections and everybody who waited.
  void release();

  // A connect is refused from now on; `reopen` listens at the same port again.
  void close();
  std::string reopen();

 private:
  static void on_readable(uv_poll_t* handle, int status, int events);
  void accept_all();
  void wait_for_descriptors();
  bool is_own(int descriptor) const;
  void close_own();

  uv_loop_t* loop_;
  std::function<void(int)> on_accept_;
  uv_poll_t* poll_ = nullptr;
  uv_timer_t* retry_ = nullptr;
  int descriptor_ = -1;
  std::string host_;
  uint16_t port_ = 0;
  int segment_bytes_ = 0;  // 0: as large as the link takes
  std::vector<int> own_connections_;
  std::vector<uint16_t> own_ports_;
};

}  // namespace plc_sim
