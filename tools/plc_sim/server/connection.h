// One connection of a host: collects its requests, hands them on, and sends what is delivered.
#pragma once

#include <uv.h>

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "tools/plc_sim/controller/faults.h"
#include "tools/plc_sim/controller/session.h"

namespace plc_sim {

class Connection;

struct ConnectionEvents {
  std::function<void(Connection&)> opened;
  std::function<Delivery(Connection&, const Bytes&)> request;
  std::function<void(Connection&, const std::string&)> violation;
  std::function<void(Connection&, const Bytes&)> sent;
  std::function<void(Connection&)> closed;  // the connection is gone after this call
};

// Replies that a host does not take: while more than this waits, nothing further is read from its connection.
constexpr size_t kMostWaitingBytes = 65536;

class Connection {
 public:
  // Takes over the connected descriptor. Deletes itself through `closed` when it ends.
  Connection(uv_loop_t* loop, int descriptor, unsigned number, const ConnectionEvents& events);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  Session& session() { return session_; }
  unsigned session_number() const { return session_.number; }
  uint16_t peer_port() const { return peer_port_; }
  bool is_open() const { return !is_closing_; }
  // When bytes last came or the last reply was taken, on the loop's clock.
  uint64_t last_heard_ms() const { return last_heard_ms_; }
  void close();
  void reset();
  // What is still to be sent when the host ends its side is sent; else it is not.
  void finish_deliveries() { finishes_ = true; }

 private:
  struct Write {
    uv_write_t request;
    Bytes bytes;
    Connection* connection;
  };

  ~Connection() = default;
  static void on_allocate(uv_handle_t* handle, size_t size, uv_buf_t* buffer);
  static void on_read(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer);
  static void on_quiet(uv_timer_t* timer);
  static void on_piece_due(uv_timer_t* timer);
  static void on_written(uv_write_t* request, int status);
  static void on_handle_closed(uv_handle_t* handle);

  void take_requests(bool is_quiet);
  void take_request(size_t bytes);
  void answer(const Bytes& frame);
  void send_due_pieces();
  void send(Bytes bytes);
  size_t waiting_bytes() const;
  void stop_reading_when_full();
  void read_again();
  void close_timers();
  bool is_delivering() const { return !pieces_.empty() || then_ != AfterDelivery::kKeepOpen; }

  const ConnectionEvents& events_;
  Session session_;
  uint16_t peer_port_ = 0;
  uv_tcp_t tcp_{};
  uv_timer_t quiet_timer_{};
  uv_timer_t piece_timer_{};
  int open_handles_ = 0;
  bool is_closing_ = false;
  bool is_reading_ = true;
  bool finishes_ = false;
  uint64_t last_heard_ms_ = 0;
  Bytes received_;
  std::array<char, 8192> read_buffer_{};
  std::deque<Delivery::Piece> pieces_;
  AfterDelivery then_ = AfterDelivery::kKeepOpen;
};

}  // namespace plc_sim
