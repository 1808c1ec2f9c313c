#include <routerkit/link-layer.h>

#include <array>
#include <cstddef>
#include <cstring>

#include <net/if_arp.h>
#include <sys/ioctl.h>

#include <routerkit/conversions.h>

#include "net/inet.h"
#include "support/log.h"
#include "support/socket.h"

using rk::ControlSocket;
using rk::IfRequest;

namespace {

constexpr size_t kMacSize = 6;

// SIOCDEVPRIVATE of <linux/sockios.h>: a driver's own command; its words are as wide as a pointer
// because some of them are one.
constexpr unsigned long kDriverCommand = SIOCDEVPRIVATE;
using DriverWords = unsigned long[4];

int run_driver(IfRequest &request, const ControlSocket &control, DriverWords &words) {
    request.record().ifr_data = reinterpret_cast<char *>(words);
    return request.run(control, kDriverCommand);
}

// The bridge's forwarding database, as in <linux/if_bridge.h>.
constexpr unsigned long kGetFdbEntries = 18; // BRCTL_GET_FDB_ENTRIES
constexpr int kFdbRoom = 128;

struct FdbEntry {
    uint8_t mac[kMacSize];
    uint8_t port;
    uint8_t is_local;
    uint32_t ageing_timer;
    uint8_t port_high;
    uint8_t padding;
    uint16_t unused;
};
static_assert(sizeof(FdbEntry) == 16 && offsetof(FdbEntry, port) == 6 &&
              offsetof(FdbEntry, is_local) == 7 && offsetof(FdbEntry, port_high) == 12);

// What is connected to the bridge's ports, from port 1 on.
struct BridgePort {
    char ifname[6];
    char label[6];
};

constexpr BridgePort kBridgePorts[] = {
    {"eth0", "LAN1"}, {"eth2", "LAN2"},   {"eth3", "LAN3"},
    {"eth4", "LAN4"}, {"wlan0", "WLAN0"}, {"wlan1", "WLAN1"},
};

const BridgePort *find_port(const char *bridge, const void *mac) {
    int port = br_mac2port(bridge, mac);
    return port >= 1 && port <= static_cast<int>(std::size(kBridgePorts)) ? &kBridgePorts[port - 1]
                                                                          : nullptr;
}

} // namespace

int arp_getMac(void *mac, uint32_t ip, const char *dev) {
    ControlSocket control;
    if (!control) {
        return -1;
    }
    arpreq request = {};
    rk::put_inet_address(request.arp_pa, ip);
    if ((dev != nullptr && rk::set_device_name(request.arp_dev, dev) != 0) ||
        control.run(SIOCGARP, &request) < 0) {
        return -1;
    }
    std::memcpy(mac, request.arp_ha.sa_data, kMacSize);
    return 1;
}

int dev_getAddrs(void *mac, uint32_t *addr, uint32_t *mask, int *index, const char *ifname) {
    ControlSocket control;
    if (!control) {
        return -1;
    }
    IfRequest request(ifname);
    if (index != nullptr) {
        if (request.run(control, SIOCGIFINDEX) < 0) {
            return -1;
        }
        *index = request.record().ifr_ifindex;
    }
    if (mac != nullptr) {
        if (request.run(control, SIOCGIFHWADDR) < 0) {
            return -1;
        }
        std::memcpy(mac, request.record().ifr_hwaddr.sa_data, kMacSize);
    }
    if (addr != nullptr) {
        if (request.run(control, SIOCGIFADDR) < 0) {
            return -1;
        }
        *addr = ipv4_ntoi(rk::inet_address(request.record().ifr_addr));
    }
    if (mask != nullptr) {
        if (request.run(control, SIOCGIFNETMASK) < 0) {
            return -1;
        }
        *mask = ipv4_ntoi(rk::inet_address(request.record().ifr_addr));
    }
    return 0;
}

int re865xIoctl(const char *ifname, unsigned long cmd, unsigned long a1, unsigned long a2,
                unsigned long a3) {
    ControlSocket control;
    if (!control) {
        return -3;
    }
    DriverWords words = {cmd, a1, a2, a3};
    IfRequest request = IfRequest::cut(ifname);
    if (run_driver(request, control, words) < 0) {
        return -1;
    }
    return static_cast<int>(words[0] & 0xffff);
}

int br_mac2port(const char *bridge, const void *mac) {
    ControlSocket control(SOCK_STREAM);
    if (!control) {
        rk::log_at(LOG_ERR, "br_mac2port: socket: %m");
        return -1;
    }
    FdbEntry entries[kFdbRoom] = {};
    DriverWords words = {kGetFdbEntries, reinterpret_cast<unsigned long>(entries), kFdbRoom, 0};
    IfRequest request(bridge);
    int count = run_driver(request, control, words);
    if (count < 0) {
        rk::log_at(LOG_ERR, "br_mac2port: ioctl: %m");
        return -1;
    }
    const FdbEntry *entry = entries;
    for (int i = 0; i < count && i < kFdbRoom; ++i, ++entry) {
        if (entry->is_local == 0 && std::memcmp(entry->mac, mac, kMacSize) == 0) {
            return entry->port_high << 8 | entry->port;
        }
    }
    return 0;
}

const char *br_mac2ifname(const char *bridge, const void *mac) {
    const BridgePort *port = find_port(bridge, mac);
    return port != nullptr ? port->ifname : nullptr;
}

const char *br_mac2laname(const char *bridge, const void *mac) {
    const BridgePort *port = find_port(bridge, mac);
    return port != nullptr ? port->label : nullptr;
}
