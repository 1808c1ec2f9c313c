#include <routerkit/wan.h>

#include <routerkit/dns.h>
#include <routerkit/ping.h>

#include "support/chars.h"
#include "support/deadline.h"
#include "support/errno.h"
#include "support/log.h"
#include "wan/wan_file.h"

using rk::Deadline;
using rk::fail;
using rk::WanFile;

namespace {

constexpr unsigned kLookUpMs = 2000;
constexpr unsigned kMostAddresses = 8;
constexpr unsigned kVerbose = 1; // the flag's bit

// At least one address, or -1. Nothing left of the time is a time-out: the resolver would take 0
// for its own default.
int resolve_before(Deadline deadline, const char *ifname, unsigned index, const char *host,
                   uint32_t *addrs) {
    int32_t left = deadline.left();
    if (left <= 0) {
        return fail(ETIME);
    }
    int count = dns_resolve_domain(ifname, WanFile(index, _WAN_RESOLV_FILE).path(), host, addrs,
                                   kMostAddresses, static_cast<unsigned>(left));
    return count == 0 ? fail(ENOENT) : count;
}

} // namespace

int wan_resolve_domain(unsigned index, const char *name, uint32_t *addrs, unsigned max,
                       unsigned timeout_ms) {
    rk::Chars<rk::kIfNameText> ifname;
    if (wan_getConIfName(index, ifname) < 0) {
        return fail(ENETDOWN);
    }
    return dns_resolve_domain(ifname, WanFile(index, _WAN_RESOLV_FILE).path(), name, addrs, max,
                              timeout_ms);
}

int wan_gethostsbyname(unsigned index, const char *name, uint32_t *addrs, unsigned max) {
    return wan_resolve_domain(index, name, addrs, max, kLookUpMs);
}

int wan_gethostbyname(unsigned index, const char *name, uint32_t *addr) {
    return wan_gethostsbyname(index, name, addr, 1);
}

int wan_ping_test(unsigned index, const char *host, unsigned timeout_ms, unsigned flags) {
    rk::Chars<rk::kIfNameText> ifname;
    if (wan_getConIfName(index, ifname) < 0) {
        return fail(ENETDOWN);
    }
    Deadline deadline = Deadline::in(timeout_ms);
    uint32_t addrs[kMostAddresses];
    int count = resolve_before(deadline, ifname, index, host, addrs);
    if (count < 0) {
        if ((flags & kVerbose) != 0) {
            rk::log_at(LOG_NOTICE, "WAN%d ping '%s' resolve domain failed: %m",
                       static_cast<int>(index), host != nullptr ? host : "");
        }
        return -1;
    }
    int32_t left = deadline.left();
    return left <= 0 ? fail(ETIME)
                     : ping_test(ifname, addrs, static_cast<unsigned>(count),
                                 static_cast<unsigned>(left), flags);
}
