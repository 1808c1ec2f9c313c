/* Neighbours, interface addresses, the switch driver, and the bridge port behind a MAC address.
 *
 * IPv4 addresses are in integer form (<routerkit/conversions.h>), MAC addresses are 6 bytes.
 * Failures are reported by the result, with errno as the failing call left it; only br_mac2port
 * logs. An interface or bridge name of more than 15 characters fails with ENODEV, except where a
 * line says otherwise.
 */
#ifndef ROUTERKIT_LINK_LAYER_H
#define ROUTERKIT_LINK_LAYER_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* The hardware address of a neighbour, from the ARP table (SIOCGARP).
 *   mac  receives 6 bytes; an incomplete entry gives whatever the kernel reports for it
 *   dev  the interface to look behind; what null means is up to the kernel (Linux wants a name)
 * Returns 1, or -1. */
ROUTERKIT_API int arp_getMac(void *mac, uint32_t ip, const char *dev);

/* Asks for any of an interface's index, MAC address, IPv4 address and netmask, in this order; the
 * outputs that are null are not asked for. 0; -1 at the first failure, the later outputs untouched.
 */
ROUTERKIT_API int dev_getAddrs(void *mac, uint32_t *addr, uint32_t *mask, int *index,
                               const char *ifname);

/* A command to the switch driver (SIOCDEVPRIVATE); the first 15 characters of the name count.
 *   a1, a2, a3  the driver's own; an argument may be a pointer. Command 2000 of eth1 asks for the
 *               WAN port's link: a3 is the address of an int32_t, which receives -1 without one
 * Returns the low 16 bits of the request's first word, which the driver may have rewritten; -1 when
 * the driver refuses, -3 when no socket can be opened. */
ROUTERKIT_API int re865xIoctl(const char *ifname, unsigned long cmd, unsigned long a1,
                              unsigned long a2, unsigned long a3);

/* The bridge port behind which a MAC address was learnt, from the first 128 entries of the bridge's
 * forwarding database: 1 or more, 0 if it is not listed there as a remote address. -1 on failure,
 * which is logged at LOG_ERR. */
ROUTERKIT_API int br_mac2port(const char *bridge, const void *mac);

/* The interface of that port (eth0, eth2, eth3, eth4, wlan0, wlan1 for the ports 1 to 6) and its
 * label on the front (LAN1 to LAN4, WLAN0, WLAN1). Null for any other port, or without one. */
ROUTERKIT_API const char *br_mac2ifname(const char *bridge, const void *mac);
ROUTERKIT_API const char *br_mac2laname(const char *bridge, const void *mac);

ROUTERKIT_END_DECLS

#endif
