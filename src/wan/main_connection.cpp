#include <routerkit/wan.h>

#include <routerkit/conversions.h>
#include <routerkit/routes.h>

#include "support/chars.h"
#include "support/log.h"
#include "wan/attributes.h"
#include "wan/wan_file.h"

using rk::log_at;

namespace {

constexpr int kStatusIdle = 11;
constexpr int kStatusConnected = 20;
constexpr int kLongestChain = 8; // steps from a connection to its parents

constexpr int kNone = 0;

using AddressText = rk::Chars<16>; // for a log line, without spending a slot of the host's ring

bool is_up(int index) {
    int status = wan_getStatus(static_cast<unsigned>(index));
    return status == kStatusConnected || status == kStatusIdle;
}

// The connection itself or the nearest of its parents that is up. The parent that the last step
// reaches is taken as it is.
int first_up(int index) {
    for (int step = 0; step < kLongestChain && !is_up(index); ++step) {
        long parent = rk::attribute_number(static_cast<unsigned>(index), _WAN_PARENT_FILE);
        if (parent < 1 || parent > static_cast<long>(rk::kLastWanIndex)) {
            return kNone;
        }
        index = static_cast<int>(parent);
    }
    return index;
}

int choose_main_connection() {
    if (wan_hasWiredInetFlag() != 0) {
        int configured = wan_getDefault();
        return configured < 1 ? kNone : first_up(configured);
    }
    if (wan_getModemStatus() != 0) {
        int modem = wan_getModemIndex();
        return modem < 1 ? kNone : modem;
    }
    return kNone;
}

void remove_default_route(uint32_t old) {
    if (old == 0) {
        log_at(LOG_INFO, "default route: no active connection");
        return;
    }
    AddressText address;
    ipv4_itostr(address, old);
    log_at(LOG_INFO, "default route: deleted (was %s)", address.data());
    wan_delDefaultRoute(0);
}

void add_default_route(unsigned index, uint32_t gateway) {
    const char *ifname = wan_getConIface(index); // without one the kernel chooses
    wan_addDefaultRoute(gateway, ifname);
    AddressText address;
    ipv4_itostr(address, gateway);
    log_at(LOG_INFO, "default route: %s dev %s", address.data(),
           ifname != nullptr ? ifname : "any");
}

} // namespace

int wan_hasWiredInetIP() {
    int configured = wan_getDefault();
    auto index = static_cast<unsigned>(configured);
    return configured >= 1 && wan_isModem(index) == 0 && wan_isInet(index) != 0 &&
                   wan_getGateway(index) != 0
               ? 1
               : 0;
}

int wan_updateActiveRoute(unsigned index) {
    const uint32_t old_gateway = get_default_route(nullptr);
    if (index == 0) {
        remove_default_route(old_gateway);
        return 0;
    }
    const uint32_t gateway = wan_getGateway(index);
    if (old_gateway != 0) {
        AddressText address;
        ipv4_itostr(address, old_gateway);
        if (old_gateway == gateway) {
            log_at(LOG_INFO, "default route hasn't changed (%s)", address.data());
            return 0;
        }
        if (gateway == 0) {
            log_at(LOG_INFO, "default route: deleted (was %s)", address.data());
        }
        wan_delDefaultRoute(old_gateway);
    }
    if (gateway == 0) {
        log_at(LOG_INFO, "default route: nothing");
        return 0;
    }
    add_default_route(index, gateway);
    return 0;
}

int wan_updateDefaultConnection() {
    int index = choose_main_connection();
    if (index == kNone) {
        log_at(LOG_INFO, "Now has not main connection");
    } else {
        log_at(LOG_INFO, "Now main connection is WAN%d", index);
    }
    if (index == wan_readLink("active")) {
        return 0;
    }
    wan_link(index, "active");
    wan_updateActiveRoute(static_cast<unsigned>(index));
    wan_updateActiveDNS(static_cast<unsigned>(index));
    return 0;
}
