// Serves texts over HTTP from the gateway's own loop, for whoever watches over it; HTTP is the work of libmicrohttpd.
#pragma once

#include <microhttpd.h>
#include <uv.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace plc_gateway {

struct MetricsAnswer {
  int status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body;
};

// What visitors may take: they share the loop and the descriptors with the broker and the controller.
struct MetricsLimits {
  unsigned connections = 16;
  unsigned connections_per_address = 8;
  unsigned idle_seconds = 5;
  unsigned whole_seconds = 15;  // from the connect to the end of the answer, however steadily bytes come
};

class MetricsServer {
 public:
  // `answer` is given the path of a GET.
  MetricsServer(uv_loop_t* loop, std::function<MetricsAnswer(const std::string& path)> answer,
                MetricsLimits limits = {});
  MetricsServer(const MetricsServer&) = delete;
  MetricsServer& operator=(const MetricsServer&) = delete;

  // On an address of this machine. Empty, or what went wrong.
  std::string listen(const std::string& host, uint16_t port);
  uint16_t port() const { return port_; }
  // The loop has to run once more before this object may go.
  void stop();

 private:
  static MHD_Result on_request(void* self, MHD_Connection* connection, const char* path, const char* method,
                               const char* version, const char* data, size_t* size, void** visit);
  static void on_connection(void* self, MHD_Connection* connection, void** visitor,
                            MHD_ConnectionNotificationCode code);
  void run();
  void end_overdue();

  uv_loop_t* loop_;
  std::function<MetricsAnswer(const std::string&)> answer_;
  MetricsLimits limits_;
  MHD_Daemon* daemon_ = nullptr;
  uint16_t port_ = 0;
  bool is_for_this_machine_ = false;  // it listens on no other address
  uv_poll_t poll_{};
  uv_timer_t timer_{};
  uv_timer_t overdue_timer_{};
  std::map<MHD_Connection*, uint64_t> visitors_;  // when each of them connected, on the loop's clock
};

}  // namespace plc_gateway
