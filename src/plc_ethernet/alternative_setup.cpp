// Two connection set-ups for hosts that bring their own protocol; the driver itself uses neither.
#include <arpa/inet.h>
#include <sys/time.h>

#include <cstdio>
#include <cstring>

#include "plc_ethernet.h"

namespace {

constexpr size_t kDottedTextBytes = sizeof "255.255.255.255";
constexpr uint8_t kStreamKind = 'U';
constexpr socklen_t kIpv4AddressBytes = 16;
constexpr time_t kShortestSendTimeoutS = 3;

static_assert(sizeof(sockaddr_in) == kIpv4AddressBytes, "the address length that connect is given");

// Fills address from the settings. Returns false, printing so and leaving address alone, when the system does not
// resolve them.
bool resolve_settings(const CommSettings& settings, sockaddr_in* address) {
  const uint32_t ip = settings.ip_address;
  char dotted[kDottedTextBytes];
  std::snprintf(dotted, sizeof dotted, "%d.%d.%d.%d", static_cast<int>(ip >> 24), static_cast<int>((ip >> 16) & 0xFFu),
                static_cast<int>((ip >> 8) & 0xFFu), static_cast<int>(ip & 0xFFu));
  const hostent* const host = ev_gethostbyname(dotted);
  if (host == nullptr || host->h_addrtype != AF_INET || host->h_addr_list[0] == nullptr) {
    std::puts("error resolving local host\r");
    return false;
  }
  std::memset(address, 0, sizeof *address);
  address->sin_family = AF_INET;
  address->sin_port = htons(settings.tcp_port);
  std::memcpy(&address->sin_addr, host->h_addr_list[0], sizeof address->sin_addr);
  return true;
}

// Creates an IPv4 socket. Returns -1, printing so, when there is none.
int create_socket(int type) {
  const int socket_fd = ev_socket(AF_INET, type, 0);
  if (socket_fd < 0) {
    std::puts("socket error\r");
    return -1;
  }
  return socket_fd;
}

}  // namespace

int init_udp_comm(const CommSettings* settings, int32_t* socket_out, struct sockaddr_in* address_out) {
  const int socket_fd = create_socket(SOCK_DGRAM);
  if (socket_fd < 0) return -1;
  // Deliberate: a failed resolution shows in its message alone; the caller gets the socket and a 0 (D48).
  resolve_settings(*settings, address_out);
  *socket_out = socket_fd;
  return 0;
}

int CommunicationSet(const CommSettings* settings, ConnContext* conn) {
  sockaddr_in address;
  if (!resolve_settings(*settings, &address)) return -1;
  // Deliberate: 'U' selects the stream socket, every other kind the datagram socket (D47).
  const int socket_fd = create_socket(settings->socket_kind == kStreamKind ? SOCK_STREAM : SOCK_DGRAM);
  if (socket_fd < 0) return -1;
  timeval send_timeout{};
  send_timeout.tv_sec = static_cast<time_t>(conn->delay_ms % 10) + kShortestSendTimeoutS;
  ev_setsockopt(socket_fd, SOL_SOCKET, SO_SNDTIMEO, &send_timeout, sizeof send_timeout);
  const int is_reused = 1;
  ev_setsockopt(socket_fd, SOL_SOCKET, SO_REUSEADDR, &is_reused, sizeof is_reused);

  if (ev_connect(socket_fd, reinterpret_cast<const sockaddr*>(&address), kIpv4AddressBytes) < 0) {
    ev_close_handel(socket_fd);
    std::printf("connect to %s failed\r\n", inet_ntoa(address.sin_addr));
    return -1;
  }
  conn->socket_fd = socket_fd;
  return 0;
}

int ReCommunicationSet(const CommSettings* settings, ConnContext* conn) { return CommunicationSet(settings, conn); }
