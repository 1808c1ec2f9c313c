#include <routerkit/routes.h>

#include <cstdarg>
#include <cstring>
#include <sstream>

#include <net/if.h>
#include <net/route.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "support/lab.h"

using lab::Census;
using lab::FailsWith;
using lab::sh;

namespace {

rtentry asked; // the last record that went to the kernel

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (request == SIOCADDRT || request == SIOCDELRT) {
        asked = *static_cast<rtentry *>(argument);
    }
    return static_cast<int>(::syscall(SYS_ioctl, fd, request, argument));
}

namespace {

constexpr uint32_t kGateway = 0x0a010001; // 10.1.0.1
constexpr uint32_t kHost = 0xc6336409;    // 198.51.100.9
constexpr uint32_t kNetwork = 0xcb007100; // 203.0.113.0
constexpr uint32_t kNetMask = 0xffffff00;
constexpr uint32_t kHostMask = 0xffffffff;

// One provider behind eth1.
class Routes : public testing::Test {
  protected:
    lab::Host provider_{"isp", "eth1", "10.1.0.2/24", "10.1.0.1/24"};
    Census census_;
};

// The flags that the kernel lists for a destination, written as it writes them; "" for no route.
std::string listed_flags(const std::string &destination) {
    std::istringstream listing(lab::get("/proc/net/route"));
    for (std::string line; std::getline(listing, line);) {
        std::istringstream fields(line);
        std::string ifname, to, gateway, flags;
        fields >> ifname >> to >> gateway >> flags;
        if (to == destination) {
            return flags;
        }
    }
    return "";
}

TEST_F(Routes, EveryFormCarriesItsFlags) {
    struct Case {
        uint32_t destination, mask, gateway;
        const char *ifname;
        const char *listed;
        const char *flags;
        const char *shown;
    };
    for (const Case &one : {
             Case{0, 0, kGateway, "eth1", "00000000", "0003", "default via 10.1.0.1 dev eth1"},
             Case{0, 0, 0, "eth1", "00000000", "0001", "default dev eth1 scope link"},
             Case{kHost, kHostMask, kGateway, nullptr, "096433C6", "0007",
                  "198.51.100.9 via 10.1.0.1 dev eth1"},
             Case{kHost, kHostMask, 0, "eth1", "096433C6", "0005",
                  "198.51.100.9 dev eth1 scope link"},
             Case{kNetwork, kNetMask, kGateway, nullptr, "007100CB", "0003",
                  "203.0.113.0/24 via 10.1.0.1 dev eth1"},
             Case{kNetwork, kNetMask, 0, "eth1", "007100CB", "0001",
                  "203.0.113.0/24 dev eth1 scope link"},
         }) {
        std::string before = sh("ip route");
        EXPECT_EQ(route_add(one.destination, one.mask, one.gateway, one.ifname), 0) << one.shown;
        EXPECT_EQ(listed_flags(one.listed), one.flags) << one.shown;
        EXPECT_EQ(asked.rt_flags, std::stoi(one.flags)) << one.shown;
        EXPECT_THAT(sh("ip route"), testing::HasSubstr(one.shown));
        EXPECT_THAT(route_add(one.destination, one.mask, one.gateway, one.ifname),
                    FailsWith(-1, EEXIST));
        EXPECT_EQ(route_del(one.destination, one.mask, one.gateway, one.ifname), 0) << one.shown;
        EXPECT_EQ(sh("ip route"), before);
        EXPECT_THAT(route_del(one.destination, one.mask, one.gateway, one.ifname),
                    FailsWith(-1, ESRCH));
    }
}

TEST_F(Routes, DestinationZeroIsNoHost) {
    EXPECT_EQ(route_add(0, kHostMask, 0, "eth1"), 0);
    EXPECT_EQ(asked.rt_flags, RTF_UP);
    EXPECT_EQ(route_del(0, kHostMask, kGateway, nullptr), -1);
    EXPECT_EQ(asked.rt_flags, RTF_UP | RTF_GATEWAY);
}

TEST_F(Routes, FailuresAreTheKernelsAndChangeNothing) {
    std::string before = sh("ip route");
    EXPECT_THAT(route_add(kHost, kHostMask, 0x0a630001, nullptr), FailsWith(-1, ENETUNREACH));
    EXPECT_THAT(route_add(kNetwork + 1, kNetMask, kGateway, nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(route_add(kHost, kHostMask, kGateway, "nosuch0"), FailsWith(-1, ENODEV));
    EXPECT_EQ(route_add_host(kHost, kHost, "eth1"), 1);
    EXPECT_THAT(lab::without_descriptors([&] { return route_add(0, 0, kGateway, "eth1"); }),
                FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::without_descriptors([&] { return route_del(0, 0, kGateway, "eth1"); }),
                FailsWith(-1, EMFILE));
    EXPECT_EQ(sh("ip route"), before);
}

TEST(RouteDevices, NameIsTakenWhole) {
    lab::Host provider("isp", "fifteen-letters", "10.1.0.2/24", "10.1.0.1/24");
    Census census;
    EXPECT_THAT(route_add(0, 0, kGateway, "fifteen-letters+"), FailsWith(-1, ENODEV));
    EXPECT_THAT(route_add(0, 0, kGateway, "fifteen-letter"), FailsWith(-1, ENODEV));
    EXPECT_EQ(route_add(0, 0, kGateway, "fifteen-letters"), 0);
    char ifname[IFNAMSIZ];
    EXPECT_EQ(get_default_route(ifname), kGateway);
    EXPECT_STREQ(ifname, "fifteen-letters");
    // A short name may end right before memory that nobody may read.
    lab::Fenced name(std::string_view("lo", 3));
    EXPECT_EQ(route_add(kHost, kHostMask, 0, name.data()), 0);
    EXPECT_EQ(route_del(kHost, kHostMask, 0, name.data()), 0);
}

TEST_F(Routes, ThinFormsDoTheSame) {
    EXPECT_EQ(route_add_default(kGateway, "eth1"), 0);
    EXPECT_EQ(sh("ip route show default"), "default via 10.1.0.1 dev eth1 \n");
    EXPECT_EQ(wan_delDefaultRoute(kGateway), 0);
    EXPECT_EQ(wan_addDefaultRoute(kGateway, "eth1"), 0);
    EXPECT_EQ(sh("ip route show default"), "default via 10.1.0.1 dev eth1 \n");
    EXPECT_EQ(wan_addNetRoute(kNetwork, kNetMask, kGateway), 0);
    EXPECT_THAT(sh("ip route"), testing::HasSubstr("203.0.113.0/24 via 10.1.0.1 dev eth1"));
    EXPECT_THAT(wan_delNetRoute(kNetwork, kNetMask, 0x0a010009), FailsWith(-1, ESRCH));
    EXPECT_EQ(wan_delNetRoute(kNetwork, kNetMask, kGateway), 0);
    EXPECT_EQ(route_add_host(kHost, kGateway, "eth1"), 0);
    EXPECT_EQ(route_del_host(kHost), 0) << "whatever the gateway";
    EXPECT_EQ(route_add_host(kHost, kGateway, nullptr), 0);
    EXPECT_EQ(wan_delHostRoute(kHost), 0);
    EXPECT_THAT(wan_delHostRoute(kHost), FailsWith(-1, ESRCH));
}

TEST_F(Routes, HostRouteThroughAConnectionsGateway) {
    std::string before = sh("ip route");
    EXPECT_EQ(wan_addHostRoute(2, kHost), -1) << "no gateway file";
    lab::put("/var/wan/2/gateway", "none\n");
    EXPECT_EQ(wan_addHostRoute(2, 0), -1) << "no gateway comes before an equal one";
    lab::put("/var/wan/2/gateway", "10.1.0.1\n");
    EXPECT_EQ(wan_addHostRoute(2, kGateway), 1);
    EXPECT_EQ(sh("ip route"), before);
    EXPECT_EQ(wan_addHostRoute(2, kHost), 0);
    EXPECT_EQ(sh("ip route show 198.51.100.9"), "198.51.100.9 via 10.1.0.1 dev eth1 \n");
}

TEST_F(Routes, DefaultGatewayIsFoundInTheRealTable) {
    char ifname[IFNAMSIZ] = "untouched";
    EXPECT_EQ(get_default_route(ifname), 0U);
    sh("ip route add unreachable default metric 900"); // a line with the flags UP and REJECT
    EXPECT_EQ(get_default_route(ifname), 0U);
    sh("ip route add default dev eth1 metric 20"); // through an interface, without a gateway
    EXPECT_EQ(get_default_route(ifname), 0U);
    EXPECT_STREQ(ifname, "untouched");
    sh("ip route add default via 10.1.0.9 metric 50 && ip route add default via 10.1.0.1 metric 40");
    EXPECT_EQ(get_default_route(ifname), kGateway) << "the first one listed";
    EXPECT_STREQ(ifname, "eth1");
    EXPECT_EQ(get_default_route(nullptr), kGateway);
    sh("ip route del unreachable default");
    EXPECT_EQ(lab::without_descriptors([&] { return get_default_route(nullptr); }), 0U);
}

TEST_F(Routes, DefaultGatewayIsFoundBehindALongTable) {
    std::string batch;
    for (int i = 0; i < 400; ++i) {
        batch += "route add 172.16." + std::to_string(i / 200) + "." + std::to_string(i % 200) +
                 "/32 dev eth1\n";
    }
    lab::put("/tmp/batch", batch);
    sh("ip -batch /tmp/batch");
    sh("ip route add table main 0.0.0.0/0 via 10.1.0.1");
    lab::SignalStorm storm;
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(get_default_route(nullptr), kGateway);
    }
}

// What /proc/net/route shows this process for the time of a test. The folder is covered, not the
// file: the kernel looks the files in it up anew each time and so would forget the mount.
class Listing {
  public:
    explicit Listing(const std::string &text) {
        lab::put("/tmp/net/route", text);
        EXPECT_EQ(::mount("/tmp/net", "/proc/self/net", nullptr, MS_BIND, nullptr), 0);
        EXPECT_EQ(lab::get("/proc/net/route"), text);
    }
    ~Listing() { EXPECT_EQ(::umount("/proc/self/net"), 0); }
};

TEST(RouteListing, IsScannedLineByLine) {
    const std::string head = "Iface Destination Gateway Flags RefCnt Use Metric Mask\n";
    const std::string lan = "br0 0000A8C0 00000000 0001 0 0 0 00FFFFFF 0 0 0\n";
    std::string long_lan = lan.substr(0, lan.size() - 1); // fills a whole reading
    long_lan.resize(255, ' ');
    const std::string wan = "ppp0 00000000 0102030A 0003 0 0 0 00000000 0 0 0\n";
    struct Case {
        std::string text;
        uint32_t gateway;
        const char *ifname = "untouched";
    };
    const Case cases[] = {
        {head + lan + wan, 0x0a030201, "ppp0"},
        {head + wan.substr(0, wan.size() - 1), 0x0a030201, "ppp0"}, // no newline at the end
        {head + "ppp0 0 FF 3 0 0 0 0", 0xff000000, "ppp0"},
        {head + "ppp0 0 FF 3 0 0 0 0 and more", 0xff000000, "ppp0"},
        {head + "ppp0\t0x0 0xff 0XFFFF -1 +2 3 000", 0xff000000, "ppp0"}, // as scanf reads numbers
        {head + lan + "br0 0000A8C0\n" + wan, 0},                         // a malformed line
        {head + "br0 0 0 1 0 zero 0 0\n" + wan, 0},
        {head + lan + "br0 0 0 1 0 0 0\n" + wan, 0},
        {head + lan + "\n" + wan, 0}, // a blank one
        {head + std::string("\0", 1) + "\n" + wan, 0},
        {wan, 0}, // the first line never counts
        {"", 0},
        {head, 0},
        {head + "ppp0 00000000 0102030A 0001 0 0 0 00000000\n", 0}, // no gateway
        {head + "ppp0 00000000 0102030A 0002 0 0 0 00000000\n", 0}, // not up
        {head + "* 00000000 00000000 0201 0 0 0 00000000\n" + wan, 0x0a030201, "ppp0"},
        {head + "ppp0 00000000 0102030A 0003 0 0 0 00000001\n", 0},       // a mask
        {head + "ppp0 00000001 0102030A 0003 0 0 0 00000000\n", 0},       // a destination
        {head + "ppp0 00000000 00000000 0003 0 0 0 00000000\n" + wan, 0}, // gateway elsewhere
        {head + "fifteen-letters 0 FF 3 0 0 0 0\n", 0xff000000, "fifteen-letters"},
        {head + "sixteen-letters+ 0 FF 3 0 0 0 0\n" + wan, 0}, // "+" is no address
        {head + std::string(200, 'x') + " 0 FF 3 0 0 0 0\n" + wan, 0},
        // What does not fit 255 characters is a line of its own.
        {head + long_lan + wan, 0x0a030201, "ppp0"},
        {head + long_lan + "0\n" + wan, 0},
        {std::string(255, 'h') + wan, 0x0a030201, "ppp0"},
        {std::string(256, 'h') + "\n" + wan, 0},
        {std::string(100000, 'h'), 0},
    };
    for (const Case &one : cases) {
        Listing listing(one.text);
        Census census;
        char ifname[IFNAMSIZ + 1] = "untouched";
        ifname[IFNAMSIZ] = '#';
        EXPECT_EQ(get_default_route(ifname), one.gateway) << one.text;
        EXPECT_STREQ(ifname, one.ifname) << one.text;
        EXPECT_EQ(ifname[IFNAMSIZ], '#');
    }
}

} // namespace
