// One connection of a host.
//
// A host sends one request and waits for its reply: bytes behind the end of a request are violations and dropped, and
// so is a request while nothing of the reply to the last one has left. Once a fault has torn a reply into pieces or
// added bytes to it, hosts run ahead: replies to further requests then wait behind the pieces that are still to come.
// A host that does not take its replies is not read any further, so that they cannot fill the memory.
#include "tools/plc_sim/server/connection.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include "wire/framing.h"

namespace plc_sim {
namespace {

// Requests come in one segment on loopback; what is incomplete for longer than this ends where it stands.
constexpr uint64_t kQuietMs = 20;

template <typename Handle>
uv_handle_t* generic(Handle& handle) {
  return reinterpret_cast<uv_handle_t*>(&handle);
}

uv_stream_t* as_stream(uv_tcp_t& tcp) { return reinterpret_cast<uv_stream_t*>(&tcp); }

}  // namespace

Connection::Connection(uv_loop_t* loop, int descriptor, unsigned number, const ConnectionEvents& events)
    : events_(events) {
  session_.number = number;
  sockaddr_in peer{};
  socklen_t length = sizeof peer;
  getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &length);
  peer_port_ = ntohs(peer.sin_port);
  uv_tcp_init(loop, &tcp_);
  uv_tcp_open(&tcp_, descriptor);
  uv_tcp_nodelay(&tcp_, 1);
  uv_timer_init(loop, &quiet_timer_);
  uv_timer_init(loop, &piece_timer_);
  tcp_.data = quiet_timer_.data = piece_timer_.data = this;
  open_handles_ = 3;
  last_heard_ms_ = uv_now(loop);
  events_.opened(*this);
  uv_read_start(as_stream(tcp_), on_allocate, on_read);
}

void Connection::on_allocate(uv_handle_t* handle, size_t, uv_buf_t* buffer) {
  auto* self = static_cast<Connection*>(handle->data);
  *buffer = uv_buf_init(self->read_buffer_.data(), static_cast<unsigned>(self->read_buffer_.size()));
}

void Connection::on_read(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
  auto* self = static_cast<Connection*>(stream->data);
  if (count < 0) {
    if (!self->received_.empty()) {
      self->events_.violation(
          *self, "the connection ended inside a request of " + std::to_string(self->received_.size()) + " bytes");
    }
    if (count == UV_EOF && self->finishes_ && self->is_delivering()) {
      uv_read_stop(stream);
      self->then_ = self->then_ == AfterDelivery::kKeepOpen ? AfterDelivery::kClose : self->then_;
    } else {
      self->close();
    }
    return;
  }
  self->last_heard_ms_ = uv_now(self->tcp_.loop);
  self->received_.insert(self->received_.end(), buffer->base, buffer->base + count);
  self->take_requests(false);
}

void Connection::on_quiet(uv_timer_t* timer) { static_cast<Connection*>(timer->data)->take_requests(true); }

void Connection::take_requests(bool is_quiet) {
  uv_timer_stop(&quiet_timer_);
  while (!received_.empty() && !is_closing_ && is_reading_) {
    const FrameEnd end = find_frame_end(received_, is_quiet);
    if (!end.is_complete) {
      uv_timer_start(&quiet_timer_, on_quiet, kQuietMs, 0);
      return;
    }
    take_request(end.bytes);
    stop_reading_when_full();
  }
}

// A piece costs more than its bytes, which are few where a reply leaves byte by byte.
size_t Connection::waiting_bytes() const {
  size_t bytes = uv_stream_get_write_queue_size(reinterpret_cast<const uv_stream_t*>(&tcp_));
  for (const Delivery::Piece& piece : pieces_) bytes += sizeof piece + piece.bytes.size();
  return bytes;
}

void Connection::stop_reading_when_full() {
  if (is_closing_ || waiting_bytes() <= kMostWaitingBytes) return;
  is_reading_ = false;
  uv_read_stop(as_stream(tcp_));
}

void Connection::read_again() {
  if (is_reading_ || is_closing_ || waiting_bytes() > kMostWaitingBytes) return;
  is_reading_ = true;
  uv_read_start(as_stream(tcp_), on_allocate, on_read);
  take_requests(false);
}

void Connection::take_request(size_t bytes) {
  const auto end = received_.begin() + static_cast<std::ptrdiff_t>(bytes);
  const Bytes frame(received_.begin(), end);
  received_.erase(received_.begin(), end);
  // A host whose stream holds bytes too many takes them for replies, and goes on without waiting.
  const bool may_run_ahead = session_.damage == ReplyDamage::kTheStream;
  if (!may_run_ahead && !received_.empty()) {
    events_.violation(*this, std::to_string(received_.size()) + " bytes behind the end of a request");
    received_.clear();
  }
  if (!may_run_ahead && is_delivering()) {
    events_.violation(*this, "a request while the reply to the last one is still on its way");
    return;
  }
  answer(frame);
}

void Connection::answer(const Bytes& frame) {
  Delivery delivery = events_.request(*this, frame);
  if (delivery.damage == ReplyDamage::kTheStream || session_.damage == ReplyDamage::kNone) {
    session_.damage = delivery.damage;
  }
  const bool is_waiting = is_delivering();
  pieces_.insert(pieces_.end(), delivery.pieces.begin(), delivery.pieces.end());
  then_ = then_ == AfterDelivery::kKeepOpen ? delivery.then : then_;
  if (!is_waiting) send_due_pieces();
}

void Connection::on_piece_due(uv_timer_t* timer) {
  auto* self = static_cast<Connection*>(timer->data);
  self->pieces_.front().wait_ms = 0;
  self->send_due_pieces();
  self->read_again();
}

void Connection::send_due_pieces() {
  while (!pieces_.empty() && !is_closing_) {
    if (pieces_.front().wait_ms > 0) {
      uv_timer_start(&piece_timer_, on_piece_due, pieces_.front().wait_ms, 0);
      return;
    }
    Bytes bytes = std::move(pieces_.front().bytes);
    pieces_.pop_front();
    send(std::move(bytes));
  }
  if (then_ == AfterDelivery::kClose) {
    close();
  } else if (then_ == AfterDelivery::kReset) {
    reset();
  }
}

void Connection::send(Bytes bytes) {
  if (bytes.empty() || is_closing_) return;
  events_.sent(*this, bytes);
  // What fits the socket's buffer goes at once, so that a close right after it does not overtake it.
  uv_buf_t buffer = uv_buf_init(reinterpret_cast<char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
  const int written = uv_try_write(as_stream(tcp_), &buffer, 1);
  const size_t done = written > 0 ? static_cast<size_t>(written) : 0;
  if (done == bytes.size()) return;
  auto* write = new Write{{}, Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(done), bytes.end()), this};
  write->request.data = write;
  buffer = uv_buf_init(reinterpret_cast<char*>(write->bytes.data()), static_cast<unsigned>(write->bytes.size()));
  if (uv_write(&write->request, as_stream(tcp_), &buffer, 1, on_written) != 0) delete write;
}

// Nobody is left who could take the rest when it cannot be written. The handles outlive their writes.
void Connection::on_written(uv_write_t* request, int status) {
  auto* write = static_cast<Write*>(request->data);
  Connection* self = write->connection;
  delete write;
  if (status < 0) {
    self->close();
    return;
  }
  self->last_heard_ms_ = uv_now(self->tcp_.loop);
  self->read_again();
}

void Connection::close_timers() {
  is_closing_ = true;
  uv_close(generic(quiet_timer_), on_handle_closed);
  uv_close(generic(piece_timer_), on_handle_closed);
}

void Connection::close() {
  if (!is_closing_) {
    close_timers();
    uv_close(generic(tcp_), on_handle_closed);
  }
}

void Connection::reset() {
  if (is_closing_) return;
  close_timers();
  if (uv_tcp_close_reset(&tcp_, on_handle_closed) != 0) uv_close(generic(tcp_), on_handle_closed);
}

void Connection::on_handle_closed(uv_handle_t* handle) {
  auto* self = static_cast<Connection*>(handle->data);
  if (--self->open_handles_ == 0) {
    self->events_.closed(*self);
    delete self;
  }
}

}  // namespace plc_sim
