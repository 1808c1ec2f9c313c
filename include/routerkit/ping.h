/* Does a host answer? */
#ifndef ROUTERKIT_PING_H
#define ROUTERKIT_PING_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Sends one ICMP echo request (RFC 792) to each address, then judges the first ICMP message that
 * arrives for this host, whoever sent it. Needs the right to open raw sockets.
 *   ifname        the interface to use, or null for any
 *   addrs, count  the addresses in integer form (<routerkit/conversions.h>)
 *   timeout_ms    until the reply must have arrived, from the call's start
 *   flags         bit 0: log an answer at LOG_NOTICE and a failure at LOG_ERR
 * Returns 1 when that message answers our request; 0 when it does not or nothing arrived in time;
 * -1 on failure of the socket, the interface, a send, the wait or the receive, with its errno. On
 * the loopback interface the first message to arrive is our own request, so the result is 0 there.
 */
ROUTERKIT_API int ping_test(const char *ifname, const uint32_t *addrs, unsigned count,
                            unsigned timeout_ms, unsigned flags);

ROUTERKIT_END_DECLS

#endif
