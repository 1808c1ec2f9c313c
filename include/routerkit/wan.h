/* The state of the router's WAN connections, and the choice of the main one.
 *
 * Each connection keeps its state as small text files, one value each, in a folder /var/wan/<name>:
 * connection programs write them, everyone reads them here, and nothing is cached. Connections are
 * numbered 1 to 8; index 0 names the default connection (folder "default", a link) and 255 the one
 * used for TR-069 management (folder "tr069", a link). Between processes nothing is locked: a
 * reader sees a file as its last writer left it.
 *
 * Unless a line says otherwise, a failure leaves errno as the failing system call set it, and
 * nothing is logged. Addresses are in integer form (<routerkit/conversions.h>).
 */
#ifndef ROUTERKIT_WAN_H
#define ROUTERKIT_WAN_H

#include <stddef.h>
#include <stdint.h>

#include <routerkit/export.h>

ROUTERKIT_BEGIN_DECLS

/* --- Attribute files ---
 * Their names within a connection's folder. Numbers are decimal text; interface names are stored
 * without a newline, for texts are not trimmed. */

ROUTERKIT_API extern const char _WAN_IDX_FILE[];       /* "index": a number */
ROUTERKIT_API extern const char _WAN_PARENT_FILE[];    /* "parent": index of the connection below */
ROUTERKIT_API extern const char _WAN_GW_FILE[];        /* "gateway": dotted IPv4 address */
ROUTERKIT_API extern const char _WAN_IP_FILE[];        /* "ip": address, "/" and width if known */
ROUTERKIT_API extern const char _WAN_VLAN_FILE[];      /* "vlan": VLAN id */
ROUTERKIT_API extern const char _WAN_ROUTES_FILE[];    /* "routes": see wan_writeRoutes */
ROUTERKIT_API extern const char _WAN_RESOLV_FILE[];    /* "resolv.conf": name servers */
ROUTERKIT_API extern const char _WAN_RESOLV6_FILE[];   /* "resolv6.conf": IPv6 name servers */
ROUTERKIT_API extern const char _WAN_PHY_IFACE_FILE[]; /* "phy_iface": physical interface */
ROUTERKIT_API extern const char _WAN_ETH_IFACE_FILE[]; /* "eth_iface": Ethernet-level interface */
ROUTERKIT_API extern const char _WAN_CON_IFACE_FILE[]; /* "con_iface": carries the IP traffic */
ROUTERKIT_API extern const char _WAN_IFACE_IDX_FILE[]; /* "iface_index": a number */
ROUTERKIT_API extern const char _WAN_STATUS_FILE[];    /* "status": code and word */
ROUTERKIT_API extern const char _WAN_TYPE_FILE[];      /* "type": a number; 3 is PPPoE */
ROUTERKIT_API extern const char _WAN_PURPOSE_FILE[];   /* "purpose": service-list bit set */
ROUTERKIT_API extern const char _WAN_MODEM_FILE[];     /* "modem": modem type; presence counts */
ROUTERKIT_API extern const char _WAN_ENABLED_FILE[];   /* "enabled": presence counts */
ROUTERKIT_API extern const char _WAN_INET_FILE[];      /* "inet": presence: serves Internet */
ROUTERKIT_API extern const char _WAN_CLEANING_FILE[];  /* ".cleaning" */
ROUTERKIT_API extern const char _WAN_PAP_FILE[];       /* "pap-secrets" */
ROUTERKIT_API extern const char _WAN_CHAP_FILE[];      /* "chap-secrets" */
ROUTERKIT_API extern const char _WAN_PPP_OPTIONS_FILE[];    /* "ppp-options" */
ROUTERKIT_API extern const char _WAN_PPP_LINK_FILE[];       /* "ppp-link" */
ROUTERKIT_API extern const char _WAN_L2TP_CONFIG_FILE[];    /* "l2tp.conf" */
ROUTERKIT_API extern const char _WAN_L2TP_CTRL_FILE[];      /* "l2tp.ctrl" */
ROUTERKIT_API extern const char _WAN_L2TP_SERVER_IP_FILE[]; /* "l2tp-server.ip" */
ROUTERKIT_API extern const char _LAN_IFACES_FILE[];         /* "lan_ifaces": bound LAN interfaces */
ROUTERKIT_API extern const char _WAN_IPV6_ORIGIN_FILE[];    /* "ipv6_origin" */
ROUTERKIT_API extern const char _WAN_IPV6_ENABLED_FILE[];   /* "ipv6_enabled" */

/* Paths, each in one strf slot (<routerkit/strings.h>), cut there at 255 characters. The folder of
 * an ordinary index is the one character with code 48 + index. */
ROUTERKIT_API char *wan_folder(unsigned index);                        /* /var/wan/2 */
ROUTERKIT_API char *wan_file(unsigned index, const char *name);        /* /var/wan/2/ip */
ROUTERKIT_API char *wan_run_folder(unsigned index);                    /* /var/wan/2/run */
ROUTERKIT_API char *wan_pid_file(unsigned index, const char *program); /* /var/wan/2/run/x.pid */

/* Numbers; the first three are -1 when the file cannot be read, the last two 0 when it cannot be
 * read or is negative. */
ROUTERKIT_API int wan_getIndex(unsigned index);
ROUTERKIT_API int wan_getIfIndex(unsigned index);
ROUTERKIT_API int wan_getType(unsigned index);
ROUTERKIT_API int wan_getVlanId(unsigned index);
ROUTERKIT_API int wan_getModemType(unsigned index);

/* The application type (serviceListToAppType) of the connection's service list; 1 without a list.
 */
ROUTERKIT_API int wan_getPurpose(unsigned index);

/* Maps the bits 1 to 4 of a service list to an application type, 0 to 4. */
ROUTERKIT_API int serviceListToAppType(int services);

/* The connection's address, 0 if there is none.
 *   prefix  receives the width behind the "/" if the file holds one; untouched otherwise, may be
 *           null */
ROUTERKIT_API uint32_t wan_getIP(unsigned index, int *prefix);

/* The connection's gateway, 0 if there is none or it cannot be read. */
ROUTERKIT_API uint32_t wan_getGateway(unsigned index);

/* Interface names of at most 19 characters, in a static slot of this getter and index that the next
 * successful call for the same index overwrites. Null when the file cannot be read and for an index
 * above 8. */
ROUTERKIT_API char *wan_getPhyIface(unsigned index);
ROUTERKIT_API char *wan_getEthIface(unsigned index);
ROUTERKIT_API char *wan_getConIface(unsigned index);

/* The same into the caller's 20 bytes; return the number of characters, or -1. */
ROUTERKIT_API int wan_getPhyIfName(unsigned index, char *buffer);
ROUTERKIT_API int wan_getEthIfName(unsigned index, char *buffer);
ROUTERKIT_API int wan_getConIfName(unsigned index, char *buffer);

/* The Ethernet-level interface, and the interface of the attached modem (/tmp/modem-iface), into
 * `size` bytes. Return the number of characters; -1, also for a null buffer (EINVAL). */
ROUTERKIT_API int getWanIfName(unsigned index, char *buffer, size_t size);
ROUTERKIT_API int wan_getModemIface(char *buffer, size_t size);

/* 1 when the connection runs over a modem, serves Internet access, is enabled; else 0. */
ROUTERKIT_API int wan_isModem(unsigned index);
ROUTERKIT_API int wan_isInet(unsigned index);
ROUTERKIT_API int wan_isEnabled(unsigned index);

/* The lowest index from 1 to 8 whose "con_iface" is exactly this name; -1 if none is, or for null.
 */
ROUTERKIT_API int wan_getIdxByIface(const char *name);

/* Cuts an interface name at the first "." of its first 32 characters, in place ("eth1.2" to
 * "eth1"). 1 if it was cut, else 0. */
ROUTERKIT_API int GET_REAL_IFNAME(char *name);

/* Does nothing. */
ROUTERKIT_API void wan_getMagicConIfName(void);

/* The interface whose counters stand for a connection's traffic: where a connection of type 3
 * (PPPoE) exists, "eth1" for the default connection and the first such connection's interface for
 * every other; without one, the connection's own. Null where wan_getConIface is. */
ROUTERKIT_API const char *wan_getMagicConIfNameForStatistics(unsigned index);

/* --- Connection links ---
 * Symbolic links in /var/wan that name a connection: "default", "active" (the main connection),
 * "modem", "tr069". */

/* Points a link at a connection ("default" for 0), or only removes it for a negative index. 0 or
 * -1; ENOBUFS for a name that does not fit a path of 2047 characters. */
ROUTERKIT_API int wan_link(int index, const char *name);

/* The index that a link names, 0 for "default"; -1 when there is no such link. */
ROUTERKIT_API int wan_readLink(const char *name);

ROUTERKIT_API int wan_getDefault(void);    /* wan_readLink("default") */
ROUTERKIT_API int wan_getModemIndex(void); /* wan_readLink("modem") */

/* 1 when the index is the one that the default link names, else 0. */
ROUTERKIT_API int wan_isDefault(int index);

/* Follows 255 to the TR-069 connection (-1 without one), and then 0 to the default connection; any
 * other index stays. */
ROUTERKIT_API int wan_resolve(int index);

/* --- Status --- */

/* The width of one status code. The library neither reads nor writes it. */
ROUTERKIT_API extern int32_t WAN_STATUS_T;

/* The status code; -1 when the file cannot be read. */
ROUTERKIT_API int wan_getStatus(unsigned index);

/* Records a status as its code and a fixed word: 0 disabled, 1 disconnected, 10 connecting, 11 in
 * idle, 12 requested ip, 20 connected, 90 no auth, 91 no server, 92 no PADO, 93 no PADS, 94 no AC,
 * 95 no IP, and 99 error for 99 and every other code. Returns the number of characters written, or
 * -1. */
ROUTERKIT_API int wan_updateIfStatus(unsigned index, int code);

/* The status in words for the user, in Russian (UTF-8, constant, never null: an unknown code and a
 * missing file are an unknown error). */
ROUTERKIT_API const char *wan_getTextStatus(unsigned index);

/* 4 after the connection's first finished session, else 0. */
ROUTERKIT_API int wan_getDisconnectReason(unsigned index);

/* --- Flags ---
 * Set (on != 0) or clear a flag file: 0, or -1 (ENOENT for a flag that is not set). */

ROUTERKIT_API int wan_setLinkFlag(int on);  /* the wired WAN port has link */
ROUTERKIT_API int wan_setModemFlag(int on); /* the modem is up; clearing also removes its link */
ROUTERKIT_API int wan_setWiredInetFlag(int on); /* the wired connection has Internet access */

/* Tests, 1 or 0. */
ROUTERKIT_API int wan_hasLinkFlag(void);
ROUTERKIT_API int wan_hasModemFlag(void);
ROUTERKIT_API int wan_getModemStatus(void); /* a modem is attached */

/* The wired-Internet flag; the link flag instead while the modem flag is not set. */
ROUTERKIT_API int wan_hasWiredInetFlag(void);

/* The modem flag for a connection with a modem type, else the link flag. */
ROUTERKIT_API int wan_isLinked(unsigned index);

/* Asks the switch driver for the WAN port's link: 1, or 0 when it is down or the query fails. */
ROUTERKIT_API int wan_getLinkStatus(void);

/* --- Session times, in seconds of get_monotonic_sec (<routerkit/clocks.h>) --- */

/* Notes the start of a session, unless one runs already. Returns 0. */
ROUTERKIT_API int wan_startSession(unsigned index);

/* Ends the running session, if there is one, and adds its length to the totals. Returns 0. */
ROUTERKIT_API int wan_stopSession(unsigned index);

/* Length of the running session. Without one the number means nothing: look at the status first. */
ROUTERKIT_API unsigned wan_getUptime(unsigned index);

/* Length of all sessions, and of those that ended while the type was 3 (PPPoE); the running session
 * counts in (in the second total for a connection of type 3 only). */
ROUTERKIT_API unsigned wan_getAllSessionsTime(unsigned index);
ROUTERKIT_API unsigned wan_getPPPoESessionsTime(unsigned index);

/* --- Static routes --- */

typedef struct {
    uint32_t destination;
    uint32_t mask;
    uint32_t gateway;
} wan_route_t;

/* Replaces the connection's route file, one "10.0.0.0/8-192.168.1.1" line a route. Returns the
 * number of characters written, or -1 (ENOMEM, EOVERFLOW: the file is untouched). */
ROUTERKIT_API int wan_writeRoutes(unsigned index, const wan_route_t *routes, size_t count);

/* Reads the route file, `capacity` routes at most. Returns their number; -1 when the file cannot be
 * loaded. */
ROUTERKIT_API int wan_readRoutes(unsigned index, wan_route_t *routes, size_t capacity);

/* Parses the text of a route file. A line without "/" has the mask 0, one without "-" the gateway
 * 0, and an address that does not parse is 0. Returns the number of routes. */
ROUTERKIT_API int wan_parseRoutes(wan_route_t *routes, size_t capacity, const char *text);

/* Installs or removes every route through the connection's interface. 0, whatever became of single
 * routes; -1 when the interface name cannot be read. */
ROUTERKIT_API int wan_addRoutes(unsigned index, const wan_route_t *routes, size_t count);
ROUTERKIT_API int wan_delRoutes(unsigned index, const wan_route_t *routes, size_t count);

/* --- Name servers --- */

/* As dns_writeResolvConf and dns_readResolvConf (<routerkit/dns.h>) on the connection's own file.
 */
ROUTERKIT_API int wan_writeWanResolvConf(unsigned index, const uint32_t *servers, unsigned count);
ROUTERKIT_API int wan_readWanResolvConf(unsigned index, uint32_t *servers, unsigned capacity);

/* Makes /var/resolv.conf hold this one server, or nothing for 0. 0 or -1. */
ROUTERKIT_API int wan_setDNSServer(uint32_t server);

/* Copies the connection's name servers (2047 characters at most) to /var/resolv.conf, or empties
 * that for index 0. 0 or -1; a connection's file that cannot be read is logged at LOG_ERR, and
 * /var/resolv.conf left alone. */
ROUTERKIT_API int wan_updateActiveDNS(unsigned index);

/* When the "active" link names another connection than the given one, copies that connection's name
 * servers as wan_updateActiveDNS does (for "default" it empties /var/resolv.conf); without such a
 * link it does nothing. 0 or -1. */
ROUTERKIT_API int wan_updateDefaultDNS(unsigned index);

/* --- The main connection --- */

/* 1 when the default connection is wired, serves Internet access and has a gateway, else 0. */
ROUTERKIT_API int wan_hasWiredInetIP(void);

/* Moves the kernel's default route to the connection's gateway and interface, or removes it for
 * index 0; what was done is logged at LOG_INFO. Returns 0. */
ROUTERKIT_API int wan_updateActiveRoute(unsigned index);

/* Chooses the main connection: with wired Internet (wan_hasWiredInetFlag) the default connection or
 * the nearest of its parents that is up (status 20 or 11), otherwise the attached modem's. The
 * verdict is logged at LOG_INFO. When it differs from what the "active" link names, that link, the
 * kernel's default route and /var/resolv.conf follow it. Call it after every change of a status,
 * flag or link. Returns 0. */
ROUTERKIT_API int wan_updateDefaultConnection(void);

/* --- Resolving and testing through a connection --- */

/* As dns_resolve_domain, through the connection's interface and its own name servers; -1 with
 * ENETDOWN when it has no interface name. */
ROUTERKIT_API int wan_resolve_domain(unsigned index, const char *name, uint32_t *addrs,
                                     unsigned max, unsigned timeout_ms);

/* The same with a time-out of 2000 ms, for several addresses and for one. */
ROUTERKIT_API int wan_gethostsbyname(unsigned index, const char *name, uint32_t *addrs,
                                     unsigned max);
ROUTERKIT_API int wan_gethostbyname(unsigned index, const char *name, uint32_t *addr);

/* Resolves a host (a name or a dotted address) and pings all its addresses, 8 at most, through the
 * connection, within one time-out in milliseconds for both.
 *   flags  bit 0: log the outcome (a failed look-up at LOG_NOTICE; see <routerkit/ping.h>)
 * Returns 1 when the host answered, 0 when it did not, -1 on failure: ENETDOWN without an interface
 * name, ETIME when the time was up before the test, or as resolving or ping_test left it. */
ROUTERKIT_API int wan_ping_test(unsigned index, const char *host, unsigned timeout_ms,
                                unsigned flags);

ROUTERKIT_END_DECLS

#endif
