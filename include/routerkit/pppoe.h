/* Ending a PPPoE session (RFC 2516) from outside the program that holds it. */
#ifndef ROUTERKIT_PPPOE_H
#define ROUTERKIT_PPPOE_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Sends an access concentrator the PPP Terminate-Request and then the PADT of a session, straight
 * on the Ethernet interface; no answer is awaited. Needs the right to open packet sockets.
 *   session   the session id in network order, as it stands in a PPPoE header
 *   peer_mac  the access concentrator's MAC address, 6 bytes
 *   ifname    the interface; the first 15 characters count
 * Returns 0 when both frames were sent, and also when there is no such interface or it is down;
 * -1 on failure: EINVAL for an interface that is no Ethernet, loopback and those without ARP
 * included, and for a null or all-zero peer_mac. Nothing is logged. */
ROUTERKIT_API int send_ppp_msg(uint16_t session, const void *peer_mac, const char *ifname);

ROUTERKIT_END_DECLS

#endif
