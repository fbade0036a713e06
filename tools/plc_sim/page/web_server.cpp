// Serves the page over HTTP.
//
// libmicrohttpd runs without a thread of its own: all its descriptors stand behind one of epoll, which the loop
// watches, and a timer brings it back when it asked for that. So answers are made where the controller's replies are.
#include "tools/plc_sim/page/web_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "tools/plc_sim/page/head_check.h"

namespace plc_sim {
namespace {

constexpr int kWaitingVisitors = 64;
constexpr size_t kBytesPerConnection = 32768;  // the head of a request must fit
// Whatever finds its way into the page as markup, only the page's own files are run and asked.
constexpr const char* kContentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

uv_handle_t* as_handle(uv_poll_t& poll) { return reinterpret_cast<uv_handle_t*>(&poll); }
uv_handle_t* as_handle(uv_timer_t& timer) { return reinterpret_cast<uv_handle_t*>(&timer); }

sockaddr_in own_address(int descriptor) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  return address;
}

// A descriptor, or what went wrong as a negative number.
int open_listener(const std::string& host, uint16_t port) {
  sockaddr_in address{};
  uv_ip4_addr(host.c_str(), port, &address);
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return -errno;
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(descriptor, kWaitingVisitors) != 0) {
    const int problem = -errno;
    close(descriptor);
    return problem;
  }
  return descriptor;
}

std::optional<std::string> header(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::string query_of(MHD_Connection* connection) {
  std::string query;
  const auto add = [](void* to, MHD_ValueKind, const char* key, size_t key_size, const char* value, size_t value_size) {
    const std::string_view text(value != nullptr ? value : "", value_size);
    add_argument(*static_cast<std::string*>(to), {key, key_size},
                 value != nullptr ? std::optional<std::string_view>(text) : std::nullopt);
    return MHD_YES;
  };
  MHD_get_connection_values_n(connection, MHD_GET_ARGUMENT_KIND, add, &query);
  return query;
}

std::string reached_address(MHD_Connection* connection) {
  const MHD_ConnectionInfo* info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  const sockaddr_in address = own_address(info->connect_fd);
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return text;
}

// A request from its first line on.
struct Begun {
  HeadCheck head;
  std::unique_ptr<Visit> visit;  // from the end of the head on
};

// Called with the path as it came, and as early as that.
void* begin_request(void*, const char* target, MHD_Connection*) { return new Begun{HeadCheck(target), nullptr}; }

std::string problem_of_head(MHD_Connection* connection, HeadCheck& head) {
  const auto add = [](void* to, MHD_ValueKind, const char* name, size_t size, const char*, size_t) {
    static_cast<HeadCheck*>(to)->add({name, size});
    return MHD_YES;
  };
  MHD_get_connection_values_n(connection, MHD_HEADER_KIND, add, &head);
  return head.problem();
}

std::unique_ptr<Visit> begin_visit(MHD_Connection* connection, const char* path, const char* method) {
  WebRequest request;
  request.method = method;
  request.path = path;
  request.query = query_of(connection);
  request.reached_at = reached_address(connection);
  return std::make_unique<Visit>(std::move(request),
                                 [connection](const char* name) { return header(connection, name); });
}

MHD_Result send_answer(MHD_Connection* connection, WebAnswer answer) {
  MHD_Response* response =
      MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  MHD_add_response_header(response, MHD_HTTP_HEADER_X_CONTENT_TYPE_OPTIONS, "nosniff");
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_SECURITY_POLICY, kContentSecurityPolicy);
  MHD_add_response_header(response, "X-Frame-Options", "DENY");
  MHD_add_response_header(response, "Cross-Origin-Resource-Policy", "same-origin");
  MHD_add_response_header(response, "Referrer-Policy", "no-referrer");
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  if (!answer.allowed_method.empty()) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, answer.allowed_method.c_str());
  }
  const MHD_Result result = MHD_queue_response(connection, static_cast<unsigned>(answer.status), response);
  MHD_destroy_response(response);
  return result;
}

}  // namespace

WebServer::WebServer(uv_loop_t* loop, std::function<WebAnswer(const WebRequest&)> answer, WebLimits limits)
    : loop_(loop), answer_(std::move(answer)), limits_(limits) {}

std::string WebServer::listen(const std::string& host, uint16_t port) {
  const int listener = open_listener(host, port);
  if (listener < 0) return uv_strerror(listener);
  // The port goes with the listener: 0 here is none.
  daemon_ = MHD_start_daemon(MHD_USE_EPOLL, 0, nullptr, nullptr, on_request, this, MHD_OPTION_LISTEN_SOCKET, listener,
                             MHD_OPTION_CONNECTION_LIMIT, limits_.connections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
                             limits_.connections_per_address, MHD_OPTION_CONNECTION_TIMEOUT, limits_.idle_seconds,
                             MHD_OPTION_CONNECTION_MEMORY_LIMIT, kBytesPerConnection, MHD_OPTION_NOTIFY_COMPLETED,
                             on_completed, this, MHD_OPTION_NOTIFY_CONNECTION, on_connection, this,
                             MHD_OPTION_URI_LOG_CALLBACK, begin_request, nullptr, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    close(listener);
    return "no memory or no descriptors for an HTTP server";
  }
  served_at_ = {host, ntohs(own_address(listener).sin_port)};
  uv_poll_init(loop_, &poll_, MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd);
  uv_timer_init(loop_, &timer_);
  uv_timer_init(loop_, &overdue_timer_);
  poll_.data = timer_.data = overdue_timer_.data = this;
  uv_poll_start(&poll_, UV_READABLE, [](uv_poll_t* poll, int, int) { static_cast<WebServer*>(poll->data)->run(); });
  return {};
}

void WebServer::stop() {
  if (daemon_ == nullptr) return;
  uv_close(as_handle(poll_), nullptr);
  uv_close(as_handle(timer_), nullptr);
  uv_close(as_handle(overdue_timer_), nullptr);
  MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

void WebServer::run() {
  // A visitor whom the first run closes is forgotten in the second, and who waits for the room is let in by the third.
  for (int i = 0; i < 3; ++i) MHD_run(daemon_);
  MHD_UNSIGNED_LONG_LONG wait_ms = 0;
  if (MHD_get_timeout(daemon_, &wait_ms) == MHD_YES) {
    uv_timer_start(
        &timer_, [](uv_timer_t* timer) { static_cast<WebServer*>(timer->data)->run(); }, wait_ms, 0);
  } else {
    uv_timer_stop(&timer_);
  }
}

void WebServer::on_connection(void* self, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code) {
  constexpr uint64_t kLookEveryMs = 500;
  auto* server = static_cast<WebServer*>(self);
  if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
    server->visitors_.erase(connection);
    return;
  }
  server->visitors_[connection] = uv_now(server->loop_);
  const auto look = [](uv_timer_t* timer) { static_cast<WebServer*>(timer->data)->end_overdue(); };
  if (server->visitors_.size() == 1) uv_timer_start(&server->overdue_timer_, look, kLookEveryMs, kLookEveryMs);
}

// Who sends or takes a byte now and then is never silent, and holds a place all the same.
void WebServer::end_overdue() {
  constexpr uint64_t kMsPerSecond = 1000;
  const uint64_t now = uv_now(loop_);
  for (const auto& [visitor, since] : visitors_) {
    if (now - since < limits_.whole_seconds * kMsPerSecond) continue;
    shutdown(MHD_get_connection_info(visitor, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd, SHUT_RDWR);
  }
  run();
  if (visitors_.empty()) uv_timer_stop(&overdue_timer_);
}

// Called with the head of a request, then with each piece of its body, then at its end.
MHD_Result WebServer::on_request(void* self, MHD_Connection* connection, const char* path, const char* method,
                                 const char*, const char* data, size_t* size, void** request) {
  auto& begun = *static_cast<Begun*>(*request);  // on_completed deletes it
  if (begun.visit == nullptr) {
    begun.visit = begin_visit(connection, path, method);
    const std::string problem = problem_of_head(connection, begun.head);
    if (!problem.empty()) return send_answer(connection, plain_answer(kHttpBadRequest, problem));
    const std::optional<WebAnswer> refusal = begun.visit->answer_to_head();
    return refusal ? send_answer(connection, *refusal) : MHD_YES;
  }
  if (*size > 0) {
    const bool goes_on = begun.visit->take({data, *size});
    *size = 0;
    return goes_on ? MHD_YES : MHD_NO;
  }
  const auto* server = static_cast<WebServer*>(self);
  return send_answer(connection, begun.visit->answer(server->served_at_, server->answer_));
}

void WebServer::on_completed(void*, MHD_Connection*, void** request, MHD_RequestTerminationCode) {
  delete static_cast<Begun*>(*request);
  *request = nullptr;
}

}  // namespace plc_sim
