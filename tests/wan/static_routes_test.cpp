#include <routerkit/wan.h>

#include <climits>
#include <cstring>

#include "support/lab.h"

using lab::FailsWith;
using lab::get;
using lab::put;

static bool operator==(const wan_route_t &left, const wan_route_t &right) {
    return std::memcmp(&left, &right, sizeof left) == 0;
}

namespace {

using Routes = std::vector<wan_route_t>;

Routes parse(const std::string &text, size_t capacity = 8) {
    lab::Fenced fenced(std::string_view(text.c_str(), text.size() + 1));
    Routes routes(capacity + 1, {1, 1, 1});
    int count = wan_parseRoutes(routes.data(), capacity, fenced.data());
    EXPECT_EQ(routes[capacity], (wan_route_t{1, 1, 1})) << "written past the capacity";
    routes.resize(static_cast<size_t>(count));
    return routes;
}

TEST(StaticRoutes, ComeBackAsTheyWereWritten) {
    lab::Census census;
    const Routes routes = {{0x0a000000, 0xff000000, 0xc0a80101},
                           {0xac100000, 0xfff00000, 0},
                           {0xffffffff, 0xffffffff, 0xffffffff}};
    const std::string text = "10.0.0.0/8-192.168.1.1\n"
                             "172.16.0.0/12-0.0.0.0\n"
                             "255.255.255.255/32-255.255.255.255\n";
    EXPECT_THAT(wan_writeRoutes(1, routes.data(), 3), FailsWith(-1, ENOENT));
    EXPECT_THAT(wan_readRoutes(1, nullptr, 0), FailsWith(-1, ENOENT));
    lab::sh("mkdir -p /var/wan/1");
    EXPECT_EQ(wan_writeRoutes(1, routes.data(), 3), static_cast<int>(text.size()));
    EXPECT_EQ(get("/var/wan/1/routes"), text);
    Routes back(3);
    EXPECT_EQ(wan_readRoutes(1, back.data(), 3), 3);
    EXPECT_EQ(back, routes);
    EXPECT_EQ(wan_readRoutes(1, back.data(), 2), 2);
    EXPECT_THAT(wan_writeRoutes(1, routes.data(), INT_MAX / 36 + 1), FailsWith(-1, EOVERFLOW));
    EXPECT_EQ(get("/var/wan/1/routes"), text);
    EXPECT_EQ(wan_writeRoutes(1, nullptr, 0), 0);
    EXPECT_EQ(get("/var/wan/1/routes"), "");
    EXPECT_EQ(wan_readRoutes(1, back.data(), 3), 0);
}

TEST(StaticRoutes, EachLineIsReadByItself) {
    const std::string wide = "1.2.3.4" + std::string(5000, ' ') + "/" + std::string(3000, '0') +
                             "16" + std::string(3000, 'x') + "-" + std::string(300, ' ') +
                             "4.3.2.1";
    const wan_route_t wide_route = {0x01020304, 0xffff0000, 0x04030201};
    struct Case {
        std::string text;
        Routes routes;
        size_t capacity = 8;
    };
    const Case cases[] = {
        // Nothing comes from a later line.
        {"10.0.0.0\n11.0.0.0/24-1.2.3.4",
         {{0x0a000000, 0, 0}, {0x0b000000, 0xffffff00, 0x01020304}}},
        {"10.0.\n0.1/8\n", {{0, 0, 0}, {0, 0xff000000, 0}}},
        {"1.2.3.4/\n9-\n5.6.7.8", {{0x01020304, 0, 0}, {0, 0, 0}, {0x05060708, 0, 0}}},
        {"\n\n-1.2.3.4\n\n", {{0, 0, 0x01020304}}},
        {"  10.0.0.0/8 - 1.1.1.1 junk/9-2.2.2.2\r\n", {{0x0a000000, 0xff000000, 0x01010101}}},
        {wide + "\n" + wide, {wide_route, wide_route}},
        {"", {}},
        {"1.1.1.1\n2.2.2.2\n", {{0x01010101, 0, 0}}, 1},
        {"1.1.1.1", {}, 0},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(parse(one.text, one.capacity), one.routes) << one.text;
    }
}

TEST(StaticRoutes, AreInstalledThroughTheInterface) {
    lab::Census census;
    lab::sh("ip link add ppp0 type veth peer name far && ip addr add 10.9.0.2/24 dev ppp0 && "
            "ip link set far up && ip link set ppp0 up");
    const Routes routes = {{0x0a630000, 0xffff0000, 0x0a090001},
                           {0xcb007101, 0xffffffff, 0x01010101}, // no way to this gateway
                           {0xac100000, 0xfff00000, 0}};
    EXPECT_THAT(wan_addRoutes(1, routes.data(), 3), FailsWith(-1, ENOENT));
    put("/var/wan/1/con_iface", "ppp0");
    EXPECT_EQ(wan_addRoutes(1, routes.data(), 3), 0);
    EXPECT_EQ(lab::sh("ip route"), "10.9.0.0/24 dev ppp0 proto kernel scope link src 10.9.0.2 \n"
                                   "10.99.0.0/16 via 10.9.0.1 dev ppp0 \n"
                                   "172.16.0.0/12 dev ppp0 scope link \n");
    EXPECT_EQ(wan_delRoutes(1, routes.data(), 3), 0);
    EXPECT_EQ(lab::sh("ip route"), "10.9.0.0/24 dev ppp0 proto kernel scope link src 10.9.0.2 \n");
}

} // namespace
