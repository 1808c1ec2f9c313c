#include <routerkit/wan.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include <routerkit/conversions.h>
#include <routerkit/files.h>
#include <routerkit/routes.h>

#include "support/chars.h"
#include "support/owning.h"
#include "wan/wan_file.h"

using rk::WanFile;

namespace {

constexpr size_t kLineRoom = 36; // "255.255.255.255/32-255.255.255.255" and a newline

static_assert(sizeof(wan_route_t) == 12, "host programs pass arrays of them");

void append_route(rk::TextWriter &text, const wan_route_t &route) {
    rk::Chars<16> destination;
    rk::Chars<16> gateway;
    ipv4_itostr(destination, route.destination);
    ipv4_itostr(gateway, route.gateway);
    text.format("%s/%u-%s\n", destination.data(), static_cast<unsigned>(ipv4_itow(route.mask)),
                gateway.data());
}

// Where the number behind the first such character of a line begins; null if the line has none.
const char *behind(const char *line, const char *end, char character) {
    const void *found = std::memchr(line, character, static_cast<size_t>(end - line));
    return found != nullptr ? static_cast<const char *>(found) + 1 : nullptr;
}

// Numbers may begin with white space, a newline too: what ends in a later line is not this line's.
[[gnu::noinline]] uint32_t address_in(const char *at, const char *line_end) {
    uint8_t octets[4];
    const char *end = at != nullptr ? ipv4_aton(octets, at) : nullptr;
    return end != nullptr && end <= line_end ? ipv4_ntoi(octets) : 0;
}

uint32_t mask_in(const char *at, const char *line_end) {
    char *end = nullptr;
    long width = at != nullptr ? std::strtol(at, &end, 10) : 0;
    return end != nullptr && end <= line_end ? ipv4_wtoi(static_cast<unsigned>(width)) : 0;
}

using RouteChange = int (*)(uint32_t destination, uint32_t mask, uint32_t gateway,
                            const char *ifname);

int change_routes(RouteChange change, unsigned index, const wan_route_t *routes, size_t count) {
    rk::Chars<rk::kIfNameText> ifname;
    if (wan_getConIfName(index, ifname) < 0) {
        return -1;
    }
    for (size_t i = 0; i < count; ++i) {
        change(routes[i].destination, routes[i].mask, routes[i].gateway, ifname);
    }
    return 0;
}

} // namespace

int wan_writeRoutes(unsigned index, const wan_route_t *routes, size_t count) {
    if (count > (INT_MAX - 1) / kLineRoom) {
        return rk::fail(EOVERFLOW);
    }
    size_t size = kLineRoom * count + 1;
    rk::MallocPtr<char> block(static_cast<char *>(std::malloc(size)));
    if (!block) {
        return -1;
    }
    rk::TextWriter text(block.get(), size);
    for (size_t i = 0; i < count; ++i) {
        append_route(text, routes[i]);
    }
    return writeStrToFile(WanFile(index, _WAN_ROUTES_FILE).path(), text.c_str());
}

int wan_readRoutes(unsigned index, wan_route_t *routes, size_t capacity) {
    rk::MallocPtr<char> text(loadFile(WanFile(index, _WAN_ROUTES_FILE).path(), nullptr));
    return text ? wan_parseRoutes(routes, capacity, text.get()) : -1;
}

int wan_parseRoutes(wan_route_t *routes, size_t capacity, const char *text) {
    size_t count = 0;
    while (count < capacity && *text != '\0') {
        const char *line = text;
        const char *end = line + std::strcspn(line, "\n");
        text = *end != '\0' ? end + 1 : end;
        if (line != end) {
            routes[count++] = {address_in(line, end), mask_in(behind(line, end, '/'), end),
                               address_in(behind(line, end, '-'), end)};
        }
    }
    return static_cast<int>(count);
}

int wan_addRoutes(unsigned index, const wan_route_t *routes, size_t count) {
    return change_routes(route_add, index, routes, count);
}

int wan_delRoutes(unsigned index, const wan_route_t *routes, size_t count) {
    return change_routes(route_del, index, routes, count);
}
