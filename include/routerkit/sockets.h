/* Waiting for input, connecting with a time-out, and sockets bound to one connection.
 *
 * Failures are reported by the result, with errno as the failing call left it; nothing is logged.
 */
#ifndef ROUTERKIT_SOCKETS_H
#define ROUTERKIT_SOCKETS_H

#include <sys/socket.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Waits until there is input to read, or the deadline passes; signals do not lengthen the wait.
 *   deadline  uptime_getms() plus the time-out (<routerkit/clocks.h>); one up to 2^31 - 1 ms
 *             ahead is in the future, across the clock's wrap too
 * Returns the positive result of poll, 0 with errno ETIME when the deadline has passed, or -1. */
ROUTERKIT_API int poll_sock_recv(int fd, unsigned deadline);

/* Connects with a time-out in milliseconds. The wait ends when the peer refuses or sends something:
 * a peer that accepts and says nothing costs the whole time-out. A connection still in progress
 * then counts as made, and the next blocking call on the socket waits for it. Returns 0; -1 when
 * connect fails at once; -4 when the socket's pending error cannot be read; -5 when the connection
 * failed, with that error in errno. After a failure the socket is left non-blocking. */
ROUTERKIT_API int connect_timeout(int fd, const struct sockaddr *addr, socklen_t len,
                                  int timeout_ms);

/* Opens a TCP connection to port 80 of a host that the system's resolver knows, within 200 ms, with
 * time-outs of 2 seconds for receiving and for sending. Returns the socket (close-on-exec), which
 * the caller closes, or -1. */
ROUTERKIT_API int socket_connect(const char *host);

/* Reads one address of an interface.
 *   kind  2: its IPv4 address, 4 bytes in network order
 *         4: its netmask, 4 bytes in network order
 *         8: its hardware address, a whole struct sockaddr of 16 bytes (the MAC in bytes 2 to 7)
 *         any other: its point-to-point peer's IPv4 address, 4 bytes in network order
 *   out   receives the address; untouched on failure
 * Returns 1, or 0 on failure (ENODEV for a name of more than 15 characters). */
ROUTERKIT_API int getInAddr(const char *ifname, unsigned kind, void *out);

/* Makes a socket use the interface of a WAN connection ("con_iface", <routerkit/wan.h>) only.
 * Returns 0; -1, with ENETDOWN when the connection has no interface name. */
ROUTERKIT_API int wan_sockBind(int index, int fd);

ROUTERKIT_END_DECLS

#endif
