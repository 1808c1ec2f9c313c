#include <routerkit/routes.h>

#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <net/route.h>

#include <routerkit/wan.h>

#include "foundation/io.h"
#include "net/inet.h"
#include "support/chars.h"
#include "support/lines.h"
#include "support/socket.h"

using rk::UniqueFd;

namespace {

constexpr uint32_t kHostMask = 0xffffffff;
constexpr const char *kRouteListing = "/proc/net/route";

unsigned short route_flags(uint32_t destination, uint32_t mask, uint32_t gateway) {
    unsigned flags = RTF_UP;
    if (destination != 0 && mask == kHostMask) {
        flags |= RTF_HOST;
    }
    if (gateway != 0) {
        flags |= RTF_GATEWAY;
    }
    return static_cast<unsigned short>(flags);
}

int change_route(unsigned long request, uint32_t destination, uint32_t mask, uint32_t gateway,
                 const char *ifname) {
    // The kernel reads 15 bytes of the name whatever its length, hence a copy with room for them.
    rk::Chars<IFNAMSIZ> device = {};
    rtentry route = {};
    rk::put_inet_address(route.rt_dst, destination);
    rk::put_inet_address(route.rt_gateway, gateway);
    rk::put_inet_address(route.rt_genmask, mask);
    route.rt_flags = route_flags(destination, mask, gateway);
    if (ifname != nullptr) {
        if (rk::set_device_name(device, ifname) != 0) {
            return -1;
        }
        route.rt_dev = device;
    }
    rk::ControlSocket control;
    return control ? control.run(request, &route) : -1;
}

// What one line of the listing tells.
struct ListedRoute {
    rk::Chars<IFNAMSIZ> ifname;
    unsigned long destination;
    unsigned gateway; // the address in network order, printed as a number of this processor
    unsigned flags;
    unsigned long mask;

    bool parse(const char *line) {
        return std::sscanf(line, "%15s%lx%x%X%*d%*d%*d%lx", ifname.data(), &destination, &gateway,
                           &flags, &mask) == 5;
    }

    [[nodiscard]] bool is_default() const {
        constexpr unsigned kWanted = RTF_UP | RTF_GATEWAY;
        return destination == 0 && mask == 0 && (flags & kWanted) == kWanted;
    }
};

} // namespace

int route_add(uint32_t destination, uint32_t mask, uint32_t gateway, const char *ifname) {
    return change_route(SIOCADDRT, destination, mask, gateway, ifname);
}

int route_del(uint32_t destination, uint32_t mask, uint32_t gateway, const char *ifname) {
    return change_route(SIOCDELRT, destination, mask, gateway, ifname);
}

int route_add_default(uint32_t gateway, const char *ifname) {
    return route_add(0, 0, gateway, ifname);
}

int route_add_host(uint32_t host, uint32_t gateway, const char *ifname) {
    return gateway == host ? 1 : route_add(host, kHostMask, gateway, ifname);
}

int route_del_host(uint32_t host) {
    return route_del(host, kHostMask, 0, nullptr);
}

uint32_t get_default_route(char *ifname) {
    UniqueFd fd(rk::open_file(kRouteListing, O_RDONLY));
    if (!fd) {
        return 0;
    }
    rk::LineReader<256> lines(fd.get());
    lines.next();           // the column headings
    ListedRoute route = {}; // all of the name is handed over
    while (lines.next() && route.parse(lines.line())) {
        if (!route.is_default()) {
            continue;
        }
        // A route through an IPv6 gateway is listed with the gateway 0.
        if (ifname != nullptr && route.gateway != 0) {
            std::memcpy(ifname, route.ifname, sizeof route.ifname);
        }
        return ntohl(route.gateway);
    }
    return 0;
}

// The same under two names.
[[gnu::alias("route_add_default")]] int wan_addDefaultRoute(uint32_t gateway, const char *ifname);
[[gnu::alias("route_del_host")]] int wan_delHostRoute(uint32_t host);

int wan_addNetRoute(uint32_t destination, uint32_t mask, uint32_t gateway) {
    return route_add(destination, mask, gateway, nullptr);
}

int wan_delNetRoute(uint32_t destination, uint32_t mask, uint32_t gateway) {
    return route_del(destination, mask, gateway, nullptr);
}

int wan_delDefaultRoute(uint32_t gateway) {
    return route_del(0, 0, gateway, nullptr);
}

int wan_addHostRoute(unsigned index, uint32_t host) {
    uint32_t gateway = wan_getGateway(index);
    return gateway != 0 ? route_add_host(host, gateway, nullptr) : -1;
}
