/* Thin socket and time wrappers of the driver, and its alternative UDP and TCP set-ups. Each wrapper passes its
 * arguments through and returns the system call's result unchanged, errno included. New sockets, of ev_socket and
 * ev_accept, are closed in programs that the host starts. */
#ifndef PLC_ETHERNET_H
#define PLC_ETHERNET_H

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>

#include "plc_driver.h"

#ifdef __cplusplus
extern "C" {
#endif

PLC_DRIVER_API ssize_t ev_recv(int socket_fd, void* buffer, size_t length);       /* recv, flags 0 */
PLC_DRIVER_API ssize_t ev_send(int socket_fd, const void* buffer, size_t length); /* send, flags 0 */
/* recvfrom. */
PLC_DRIVER_API ssize_t ev_recvfrom(int socket_fd, void* buffer, size_t length, int flags, struct sockaddr* address,
                                   socklen_t* address_length);
/* sendto. */
PLC_DRIVER_API ssize_t ev_sendto(int socket_fd, const void* buffer, size_t length, int flags,
                                 const struct sockaddr* address, socklen_t address_length);
/* socket, closed in programs that the host starts. */
PLC_DRIVER_API int ev_socket(int domain, int type, int protocol);
/* connect. */
PLC_DRIVER_API int ev_connect(int socket_fd, const struct sockaddr* address, socklen_t address_length);
/* setsockopt. */
PLC_DRIVER_API int ev_setsockopt(int socket_fd, int level, int option, const void* value, socklen_t value_length);
/* bind. */
PLC_DRIVER_API int ev_bind(int socket_fd, const struct sockaddr* address, socklen_t address_length);
/* listen. */
PLC_DRIVER_API int ev_listen(int socket_fd, int backlog);
/* accept; the new socket is closed in programs that the host starts. */
PLC_DRIVER_API int ev_accept(int socket_fd, struct sockaddr* address, socklen_t* address_length);
/* gethostbyname. */
PLC_DRIVER_API struct hostent* ev_gethostbyname(const char* name);
PLC_DRIVER_API int ev_close_handel(int socket_fd); /* close; every close of the driver goes through it */
PLC_DRIVER_API int ev_closesocket(int socket_fd);  /* close */

/* usleep; microseconds. */
PLC_DRIVER_API int ev_sleep(uint32_t microseconds);

/* usleep of min(milliseconds, 1000) milliseconds; 0 returns 0 immediately. The cap of one second per call is
 * deliberate. */
PLC_DRIVER_API int ev_sleep_ms(uint32_t milliseconds);

/* Waits until conn->socket_fd is readable: mode 0 at most recv_timeout_s seconds, mode 1 at most timeout_ms
 * milliseconds, other modes not at all. Returns select's result; -1 for a descriptor that select cannot take. */
PLC_DRIVER_API int ev_time_set(ConnContext* conn, uint32_t mode);

/* Creates a datagram socket and resolves the settings' address. Stores the socket (also when resolving failed, which
 * only prints) and returns 0; returns -1 and stores nothing when there is no socket. */
PLC_DRIVER_API int init_udp_comm(const CommSettings* settings, int32_t* socket_out, struct sockaddr_in* address_out);

/* Connects (blocking) a stream socket when settings->socket_kind is 'U', else a datagram socket, with a send time-out
 * of (conn->delay_ms mod 10) + 3 seconds. Stores the socket in conn->socket_fd and returns 0, or returns -1. */
PLC_DRIVER_API int CommunicationSet(const CommSettings* settings, ConnContext* conn);

/* CommunicationSet under its second name. */
PLC_DRIVER_API int ReCommunicationSet(const CommSettings* settings, ConnContext* conn);

#ifdef __cplusplus
}
#endif

#endif
