/* Name-server files, and resolving names over UDP through a chosen interface.
 *
 * The resolvers ask for IPv4 addresses (A records, RFC 1035) and hand them out in integer form
 * (<routerkit/conversions.h>). They read at most 3 servers from a file in the
 * resolver-configuration format, and pass over servers that are 0. A name may be up to 1006
 * characters of labels up to 63, with or without a final dot; a dotted IPv4 address is answered
 * without asking anyone. Nothing is logged.
 */
#ifndef ROUTERKIT_DNS_H
#define ROUTERKIT_DNS_H

#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* Replaces a name-server file by one "nameserver 1.2.3.4" line for each of `count` servers that is
 * not 0. Returns the number of characters written, or -1 (ENOMEM, EOVERFLOW: the file is
 * untouched). */
ROUTERKIT_API int dns_writeResolvConf(const char *path, const uint32_t *servers, unsigned count);

/* Reads the servers of the lines that begin with "nameserver " (one without an IPv4 address, an
 * IPv6 server's say, gives 0), `max` at most. Returns their number; -1 when the file cannot be
 * loaded. */
ROUTERKIT_API int dns_readResolvConf(const char *path, uint32_t *servers, unsigned max);

/* Resolves a name by asking all servers at once, in up to 3 passes; the first usable reply counts, whoever
 * sent it: neither its identifier nor its response code is looked at.
 *   ifname       the interface to use, or null for any (ENODEV for one that there is not)
 *   resolv_path  the name-server file
 *   addrs, max   receive the addresses in the reply's order, later ones are dropped
 *   timeout_ms   for the whole call; 0 is 10 seconds
 * Returns the number of addresses, 0 for a reply that holds records but no address; -1 with errno
 *   EINVAL    null name or addrs, or a name that cannot be asked for
 *   ENETDOWN  no name server
 *   ETIME     no usable reply in time
 *   ENOENT    only replies without records (no such name) or unusable ones, in all passes
 * or as the socket calls left it. */
ROUTERKIT_API int dns_resolve_domain(const char *ifname, const char *resolv_path, const char *name,
                                     uint32_t *addrs, unsigned max, unsigned timeout_ms);

/* The same, asking one server after the other, 2 seconds for the whole call. A silent server takes
 * all of that time. A negative max is 0. */
ROUTERKIT_API int dns_gethostsbyname(const char *ifname, const char *resolv_path, const char *name,
                                     uint32_t *addrs, int max);

/* dns_gethostsbyname for one address: 1, 0 or -1. */
ROUTERKIT_API int dns_gethostbyname(const char *ifname, const char *resolv_path, const char *name,
                                    uint32_t *addr);

ROUTERKIT_END_DECLS

#endif
