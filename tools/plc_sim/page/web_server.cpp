// Serves the page over HTTP.
#include "tools/plc_sim/page/web_server.h"

#include <netinet/in.h>

namespace plc_sim {
namespace {

template <typename Handle>
uv_handle_t* as_handle(Handle& handle) {
  return reinterpret_cast<uv_handle_t*>(&handle);
}

uv_stream_t* as_stream(uv_tcp_t& tcp) { return reinterpret_cast<uv_stream_t*>(&tcp); }

}  // namespace

WebServer::WebServer(uv_loop_t* loop, std::function<HttpAnswer(const HttpRequest&)> answer)
    : loop_(loop), answer_(std::move(answer)) {}

std::string WebServer::listen(const std::string& host, uint16_t port) {
  constexpr int kBacklog = 16;
  sockaddr_in address{};
  uv_ip4_addr(host.c_str(), port, &address);
  uv_tcp_init(loop_, &tcp_);
  tcp_.data = this;
  is_open_ = true;
  int result = uv_tcp_bind(&tcp_, reinterpret_cast<const sockaddr*>(&address), 0);
  if (result == 0) {
    result = uv_listen(as_stream(tcp_), kBacklog, on_connection);
  }
  if (result != 0) {
    return uv_strerror(result);
  }
  int length = sizeof address;
  uv_tcp_getsockname(&tcp_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  return {};
}

void WebServer::stop() {
  if (is_open_) {
    is_open_ = false;
    uv_close(as_handle(tcp_), nullptr);
  }
  for (Visitor* visitor : visitors_) {
    close_visitor(visitor);
  }
}

void WebServer::close_visitor(Visitor* visitor) {
  if (uv_is_closing(as_handle(visitor->tcp)) != 0) {
    return;
  }
  uv_close(as_handle(visitor->tcp), [](uv_handle_t* handle) {
    auto* gone = static_cast<Visitor*>(handle->data);
    gone->server->visitors_.erase(gone);
    delete gone;
  });
}

void WebServer::on_connection(uv_stream_t* stream, int status) {
  if (status != 0) {
    return;
  }
  auto* self = static_cast<WebServer*>(stream->data);
  auto* visitor = new Visitor{};
  visitor->server = self;
  self->visitors_.insert(visitor);
  uv_tcp_init(self->loop_, &visitor->tcp);
  visitor->tcp.data = visitor;
  if (uv_accept(stream, as_stream(visitor->tcp)) != 0) {
    close_visitor(visitor);
    return;
  }
  const auto on_allocate = [](uv_handle_t* handle, size_t, uv_buf_t* buffer) {
    auto* reader = static_cast<Visitor*>(handle->data);
    *buffer = uv_buf_init(reader->buffer, sizeof reader->buffer);
  };
  uv_read_start(as_stream(visitor->tcp), on_allocate, on_read);
}

void WebServer::on_read(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer) {
  auto* visitor = static_cast<Visitor*>(stream->data);
  if (count < 0) {
    close_visitor(visitor);
    return;
  }
  visitor->received.append(buffer->base, static_cast<size_t>(count));
  visitor->server->reply_to(visitor);
}

void WebServer::reply_to(Visitor* visitor) {
  const auto request = parse_http_request(visitor->received);
  if (!request) {
    return;
  }
  uv_read_stop(as_stream(visitor->tcp));
  visitor->reply =
      format_http_answer(request->method.empty() ? HttpAnswer{400, "text/plain", "bad request\n"} : answer_(*request));
  uv_buf_t buffer = uv_buf_init(visitor->reply.data(), static_cast<unsigned>(visitor->reply.size()));
  visitor->write.data = visitor;
  const auto on_written = [](uv_write_t* write, int) { close_visitor(static_cast<Visitor*>(write->data)); };
  if (uv_write(&visitor->write, as_stream(visitor->tcp), &buffer, 1, on_written) != 0) {
    close_visitor(visitor);
  }
}

}  // namespace plc_sim
