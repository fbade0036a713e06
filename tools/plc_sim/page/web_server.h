// Serves the page over HTTP from the simulator's own event loop; HTTP itself is the work of libmicrohttpd.
#pragma once

#include <microhttpd.h>
#include <uv.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "tools/plc_sim/page/visit.h"
#include "tools/plc_sim/page/visitor_check.h"
#include "tools/plc_sim/page/web_request.h"

namespace plc_sim {

// What visitors may take. They share the event loop and the descriptors with the controller.
struct WebLimits {
  unsigned connections = 64;
  unsigned connections_per_address = 32;  // further ones are closed as they come
  unsigned idle_seconds = 10;
  unsigned whole_seconds = 30;  // from the connect to the end of the answer, however steadily bytes come
};

class WebServer {
 public:
  WebServer(uv_loop_t* loop, std::function<WebAnswer(const WebRequest&)> answer, WebLimits limits = {});
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Empty when listening, else what went wrong.
  std::string listen(const std::string& host, uint16_t port);
  uint16_t port() const { return served_at_.port; }
  size_t visitors() const { return visitors_.size(); }
  // Not from within an answer. The loop has to run once more before this object may go.
  void stop();

 private:
  static MHD_Result on_request(void* self, MHD_Connection* connection, const char* path, const char* method,
                               const char* version, const char* data, size_t* size, void** request);
  static void on_connection(void* self, MHD_Connection* connection, void** visitor,
                            MHD_ConnectionNotificationCode code);
  static void on_completed(void* self, MHD_Connection* connection, void** request, MHD_RequestTerminationCode code);
  void run();
  void end_overdue();

  uv_loop_t* loop_;
  std::function<WebAnswer(const WebRequest&)> answer_;
  WebLimits limits_;
  ServedAt served_at_;
  MHD_Daemon* daemon_ = nullptr;
  uv_poll_t poll_{};
  uv_timer_t timer_{};
  uv_timer_t overdue_timer_{};
  std::map<MHD_Connection*, uint64_t> visitors_;  // when each of them connected, on the loop's clock
};

}  // namespace plc_sim
