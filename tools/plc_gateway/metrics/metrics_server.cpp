// Serves the metrics over HTTP.
//
// libmicrohttpd runs without a thread of its own: all its descriptors stand behind one of epoll, which the loop
// watches, and a timer brings it back when it asked for that.
#include "tools/plc_gateway/metrics/metrics_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace plc_gateway {
namespace {

constexpr int kWaitingVisitors = 16;
constexpr size_t kBytesPerConnection = 16384;  // the head of a request must fit
constexpr int kForbidden = 403;
constexpr int kWrongMethod = 405;

uv_handle_t* as_handle(uv_poll_t& poll) { return reinterpret_cast<uv_handle_t*>(&poll); }
uv_handle_t* as_handle(uv_timer_t& timer) { return reinterpret_cast<uv_handle_t*>(&timer); }

// A descriptor, or what went wrong as a negative number.
int open_metrics_listener(const std::string& host, uint16_t port) {
  sockaddr_storage address{};
  socklen_t length = sizeof(sockaddr_in);
  if (uv_ip4_addr(host.c_str(), port, reinterpret_cast<sockaddr_in*>(&address)) != 0) {
    length = sizeof(sockaddr_in6);
    const int problem = uv_ip6_addr(host.c_str(), port, reinterpret_cast<sockaddr_in6*>(&address));
    if (problem != 0) return problem;
  }
  const int descriptor = socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return -errno;
  const int on = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), length) != 0 ||
      ::listen(descriptor, kWaitingVisitors) != 0) {
    const int problem = -errno;
    close(descriptor);
    return problem;
  }
  return descriptor;
}

sockaddr_storage address_of(int descriptor) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
  return address;
}

uint16_t port_of(const sockaddr_storage& address) {
  return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port
                                             : reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
}

bool is_loopback(const sockaddr_storage& address) {
  constexpr uint32_t kNetBits = 24;
  if (address.ss_family == AF_INET6) {
    constexpr size_t kMappedAt = 12;
    const in6_addr& ipv6 = reinterpret_cast<const sockaddr_in6*>(&address)->sin6_addr;
    const bool is_mapped = IN6_IS_ADDR_V4MAPPED(&ipv6) != 0 && ipv6.s6_addr[kMappedAt] == IN_LOOPBACKNET;
    return is_mapped || IN6_IS_ADDR_LOOPBACK(&ipv6) != 0;
  }
  return ntohl(reinterpret_cast<const sockaddr_in*>(&address)->sin_addr.s_addr) >> kNetBits == IN_LOOPBACKNET;
}

// Whether a request names an address, or localhost. A web site gets at what listens on its visitor's own machine by
// having its own name mean that: then it is the site's name that the browser sends.
bool names_this_machine(const char* host) {
  if (host == nullptr) return true;  // no browser's
  const std::string text = host;
  in6_addr parsed{};
  if (text.rfind('[', 0) == 0) {
    const size_t end = text.find(']');
    return end != std::string::npos && inet_pton(AF_INET6, text.substr(1, end - 1).c_str(), &parsed) == 1;
  }
  const std::string name = text.substr(0, text.find(':'));
  return strcasecmp(name.c_str(), "localhost") == 0 || inet_pton(AF_INET, name.c_str(), &parsed) == 1;
}

MHD_Result send_answer(MHD_Connection* connection, MetricsAnswer answer) {
  MHD_Response* response =
      MHD_create_response_from_buffer(answer.body.size(), answer.body.data(), MHD_RESPMEM_MUST_COPY);
  if (response == nullptr) return MHD_NO;
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  MHD_add_response_header(response, MHD_HTTP_HEADER_CACHE_CONTROL, "no-store");
  MHD_add_response_header(response, MHD_HTTP_HEADER_X_CONTENT_TYPE_OPTIONS, "nosniff");
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "close");
  if (answer.status == kWrongMethod) MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  const MHD_Result result = MHD_queue_response(connection, static_cast<unsigned>(answer.status), response);
  MHD_destroy_response(response);
  return result;
}

}  // namespace

MetricsServer::MetricsServer(uv_loop_t* loop, std::function<MetricsAnswer(const std::string&)> answer,
                             MetricsLimits limits)
    : loop_(loop), answer_(std::move(answer)), limits_(limits) {}

std::string MetricsServer::listen(const std::string& host, uint16_t port) {
  const int listener = open_metrics_listener(host, port);
  if (listener < 0) return uv_strerror(listener);
  // The port goes with the listener: 0 here is none.
  daemon_ = MHD_start_daemon(MHD_USE_EPOLL, 0, nullptr, nullptr, on_request, this, MHD_OPTION_LISTEN_SOCKET, listener,
                             MHD_OPTION_CONNECTION_LIMIT, limits_.connections, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
                             limits_.connections_per_address, MHD_OPTION_CONNECTION_TIMEOUT, limits_.idle_seconds,
                             MHD_OPTION_CONNECTION_MEMORY_LIMIT, kBytesPerConnection, MHD_OPTION_NOTIFY_CONNECTION,
                             on_connection, this, MHD_OPTION_END);
  if (daemon_ == nullptr) {
    close(listener);
    return "no memory or no descriptors for an HTTP server";
  }
  const sockaddr_storage address = address_of(listener);
  port_ = port_of(address);
  is_for_this_machine_ = is_loopback(address);
  uv_poll_init(loop_, &poll_, MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd);
  uv_timer_init(loop_, &timer_);
  uv_timer_init(loop_, &overdue_timer_);
  poll_.data = timer_.data = overdue_timer_.data = this;
  uv_poll_start(&poll_, UV_READABLE, [](uv_poll_t* poll, int, int) { static_cast<MetricsServer*>(poll->data)->run(); });
  return {};
}

void MetricsServer::stop() {
  if (daemon_ == nullptr) return;
  uv_close(as_handle(poll_), nullptr);
  uv_close(as_handle(timer_), nullptr);
  uv_close(as_handle(overdue_timer_), nullptr);
  MHD_stop_daemon(daemon_);
  daemon_ = nullptr;
}

void MetricsServer::run() {
  // A visitor whom the first run closes is forgotten in the second, and who waits for the room is let in by the third.
  for (int i = 0; i < 3; ++i) MHD_run(daemon_);
  MHD_UNSIGNED_LONG_LONG wait_ms = 0;
  if (MHD_get_timeout(daemon_, &wait_ms) == MHD_YES) {
    uv_timer_start(
        &timer_, [](uv_timer_t* timer) { static_cast<MetricsServer*>(timer->data)->run(); }, wait_ms, 0);
  } else {
    uv_timer_stop(&timer_);
  }
}

void MetricsServer::on_connection(void* self, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode code) {
  constexpr uint64_t kLookEveryMs = 500;
  auto* server = static_cast<MetricsServer*>(self);
  if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
    server->visitors_.erase(connection);
    return;
  }
  server->visitors_[connection] = uv_now(server->loop_);
  const auto look = [](uv_timer_t* timer) { static_cast<MetricsServer*>(timer->data)->end_overdue(); };
  if (server->visitors_.size() == 1) uv_timer_start(&server->overdue_timer_, look, kLookEveryMs, kLookEveryMs);
}

// Who sends or takes a byte now and then is never silent, and holds a place all the same.
void MetricsServer::end_overdue() {
  constexpr uint64_t kMsPerSecond = 1000;
  const uint64_t now = uv_now(loop_);
  for (const auto& [visitor, since] : visitors_) {
    if (now - since < limits_.whole_seconds * kMsPerSecond) continue;
    shutdown(MHD_get_connection_info(visitor, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd, SHUT_RDWR);
  }
  run();
  if (visitors_.empty()) uv_timer_stop(&overdue_timer_);
}

// Called with the head of a request, then with each piece of its body, then at its end. A body is of no use here.
MHD_Result MetricsServer::on_request(void* self, MHD_Connection* connection, const char* path, const char* method,
                                     const char*, const char*, size_t* size, void** visit) {
  if (*visit == nullptr) {
    *visit = connection;
    if (std::strcmp(method, MHD_HTTP_METHOD_GET) == 0 || std::strcmp(method, MHD_HTTP_METHOD_HEAD) == 0) return MHD_YES;
    MetricsAnswer refusal;
    refusal.status = kWrongMethod;
    refusal.body = "plc-gateway: only GET and HEAD are answered\n";
    return send_answer(connection, refusal);
  }
  *size = 0;
  const auto* server = static_cast<const MetricsServer*>(self);
  const char* host = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST);
  if (!server->is_for_this_machine_ || names_this_machine(host)) return send_answer(connection, server->answer_(path));
  MetricsAnswer refusal;
  refusal.status = kForbidden;
  refusal.body = "plc-gateway: ask for 127.0.0.1, [::1] or localhost: no other name is served to this machine alone\n";
  return send_answer(connection, refusal);
}

}  // namespace plc_gateway
