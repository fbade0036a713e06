// Serves the page over HTTP from the simulator's own event loop.
#pragma once

#include <uv.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "tools/plc_sim/page/http.h"

namespace plc_sim {

class WebServer {
 public:
  WebServer(uv_loop_t* loop, std::function<HttpAnswer(const HttpRequest&)> answer);
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Empty when listening, else what went wrong.
  std::string listen(const std::string& host, uint16_t port);
  uint16_t port() const { return port_; }
  void stop();

 private:
  struct Visitor {
    WebServer* server;
    uv_tcp_t tcp;
    uv_write_t write;
    std::string received;
    std::string reply;
    char buffer[4096];
  };

  static void on_connection(uv_stream_t* stream, int status);
  static void on_read(uv_stream_t* stream, ssize_t count, const uv_buf_t* buffer);
  static void close_visitor(Visitor* visitor);
  void reply_to(Visitor* visitor);

  uv_loop_t* loop_;
  std::function<HttpAnswer(const HttpRequest&)> answer_;
  uv_tcp_t tcp_{};
  bool is_open_ = false;
  uint16_t port_ = 0;
  std::set<Visitor*> visitors_;
};

}  // namespace plc_sim
