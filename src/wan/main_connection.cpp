#include <routerkit/wan.h>

#include <routerkit/conversions.h>
#include <routerkit/routes.h>

#include "support/log.h"
#include "wan/wan_file.h"

using rk::log_at;

namespace {

constexpr int kStatusIdle = 11;
constexpr int kStatusConnected = 20;
constexpr int kLongestChain = 8; // steps from a connection to its parents

constexpr int kNone = 0;

// An address as text for a log line, without spending a slot of the host's ring.
class AddressText {
  public:
    explicit AddressText(uint32_t address) { ipv4_itostr(text_, address); }

    [[nodiscard]] const char *c_str() const { return text_; }

  private:
    char text_[16];
};

bool is_up(int index) {
    int status = wan_getStatus(static_cast<unsigned>(index));
    return status == kStatusConnected || status == kStatusIdle;
}

// The connection itself or the nearest of its parents that is up. The parent that the last step
// reaches is taken as it is.
int first_up(int index) {
    for (int step = 0; step < kLongestChain && !is_up(index); ++step) {
        long parent = rk::WanFile(static_cast<unsigned>(index), _WAN_PARENT_FILE).number();
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
    log_at(LOG_INFO, "default route: deleted (was %s)", AddressText(old).c_str());
    wan_delDefaultRoute(0);
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
    uint32_t old_gateway = get_default_route(nullptr);
    if (index == 0) {
        remove_default_route(old_gateway);
        return 0;
    }
    uint32_t gateway = wan_getGateway(index);
    if (old_gateway != 0) {
        AddressText old_text(old_gateway);
        if (old_gateway == gateway) {
            log_at(LOG_INFO, "default route hasn't changed (%s)", old_text.c_str());
            return 0;
        }
        if (gateway == 0) {
            log_at(LOG_INFO, "default route: deleted (was %s)", old_text.c_str());
        }
        wan_delDefaultRoute(old_gateway);
    }
    if (gateway == 0) {
        log_at(LOG_INFO, "default route: nothing");
        return 0;
    }
    const char *ifname = wan_getConIface(index); // without one the kernel chooses
    wan_addDefaultRoute(gateway, ifname);
    log_at(LOG_INFO, "default route: %s dev %s", AddressText(gateway).c_str(),
           ifname != nullptr ? ifname : "any");
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
