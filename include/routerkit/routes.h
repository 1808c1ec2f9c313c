/* The kernel's IPv4 routing table.
 *
 * Addresses and masks are in integer form (<routerkit/conversions.h>). Destination 0 is the default
 * route, the mask 0xffffffff a host's, gateway 0 a directly connected network. Failures are
 * reported by the result, with errno as the kernel left it (EEXIST, ESRCH, ENETUNREACH, ...; ENODEV
 * also for an interface name of more than 15 characters); nothing is logged.
 */
#ifndef ROUTERKIT_ROUTES_H
#define ROUTERKIT_ROUTES_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Add or remove a route (SIOCADDRT, SIOCDELRT); a null interface name lets the kernel choose by the
 * gateway. 0 or -1. */
ROUTERKIT_API int route_add(uint32_t destination, uint32_t mask, uint32_t gateway,
                            const char *ifname);
ROUTERKIT_API int route_del(uint32_t destination, uint32_t mask, uint32_t gateway,
                            const char *ifname);

/* Adds a default route. 0 or -1. */
ROUTERKIT_API int route_add_default(uint32_t gateway, const char *ifname);

/* Adds a route to one host. 0 or -1; 1, and nothing is changed, when the gateway is the host
 * itself. */
ROUTERKIT_API int route_add_host(uint32_t host, uint32_t gateway, const char *ifname);

/* Removes the route to one host, whatever its gateway. 0 or -1. */
ROUTERKIT_API int route_del_host(uint32_t host);

/* The gateway of the first default route that has one, as /proc/net/route lists them; 0 if there is
 * none.
 *   ifname  receives that route's interface, 16 bytes; untouched with the result 0; may be null */
ROUTERKIT_API uint32_t get_default_route(char *ifname);

/* The forms that connection programs call: the kernel chooses the interface, except for the default
 * route. 0 or -1. */
ROUTERKIT_API int wan_addNetRoute(uint32_t destination, uint32_t mask, uint32_t gateway);
ROUTERKIT_API int wan_delNetRoute(uint32_t destination, uint32_t mask, uint32_t gateway);
ROUTERKIT_API int wan_addDefaultRoute(uint32_t gateway, const char *ifname);
ROUTERKIT_API int wan_delDefaultRoute(uint32_t gateway);
ROUTERKIT_API int wan_delHostRoute(uint32_t host);

/* Adds a route to one host through the gateway of a WAN connection (<routerkit/wan.h>). 0 or -1,
 * also when the connection has no gateway; 1, and nothing is changed, when the host is that
 * gateway. */
ROUTERKIT_API int wan_addHostRoute(unsigned index, uint32_t host);

ROUTERKIT_END_DECLS

#endif
