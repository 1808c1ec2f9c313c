#include <routerkit/routes.h>

#include <net/if.h>
#include <net/route.h>
#include <sys/mount.h>

#include "support/fake_ioctl.h"
#include "support/lab.h"

using lab::Census;
using lab::FailsWith;
using lab::sh;
using lab::without_descriptors;

namespace {

constexpr uint32_t kGateway = 0x0a010001; // 10.1.0.1
constexpr uint32_t kHost = 0xc6336409;    // 198.51.100.9
constexpr uint32_t kNetwork = 0xcb007100; // 203.0.113.0
constexpr uint32_t kNetMask = 0xffffff00;
constexpr uint32_t kHostMask = 0xffffffff;

// One provider behind eth1.
class Routes : public testing::Test {
  protected:
    Routes() {
        lab::on_ioctl = [this](unsigned long request, void *record) {
            flags_ = request == SIOCADDRT || request == SIOCDELRT
                         ? static_cast<rtentry *>(record)->rt_flags
                         : 0;
            return std::nullopt;
        };
    }
    ~Routes() override { lab::on_ioctl = nullptr; }

    int flags_ = 0; // of the last record that went to the kernel
    lab::Host provider_{"isp", "eth1", "10.1.0.2/24", "10.1.0.1/24"};
    Census census_;
};

TEST_F(Routes, EveryFormCarriesItsFlags) {
    struct Case {
        uint32_t destination, mask, gateway;
        const char *ifname;
        int flags;
        const char *shown;
    };
    for (const Case &one : {
             Case{0, 0, kGateway, "eth1", 3, "default via 10.1.0.1 dev eth1"},
             Case{0, 0, 0, "eth1", 1, "default dev eth1 scope link"},
             Case{kHost, kHostMask, kGateway, nullptr, 7, "198.51.100.9 via 10.1.0.1 dev eth1"},
             Case{kHost, kHostMask, 0, "eth1", 5, "198.51.100.9 dev eth1 scope link"},
             Case{kNetwork, kNetMask, kGateway, nullptr, 3, "203.0.113.0/24 via 10.1.0.1 dev eth1"},
             Case{kNetwork, kNetMask, 0, "eth1", 1, "203.0.113.0/24 dev eth1 scope link"},
             Case{0, kHostMask, 0, "eth1", 1, "0.0.0.0 dev eth1 scope link"},
         }) {
        SCOPED_TRACE(one.shown);
        const std::string before = sh("ip route");
        auto with = [&](auto change) {
            return change(one.destination, one.mask, one.gateway, one.ifname);
        };
        EXPECT_EQ(with(route_add), 0);
        EXPECT_EQ(flags_, one.flags);
        EXPECT_THAT(sh("ip route"), testing::HasSubstr(one.shown));
        EXPECT_THAT(with(route_add), FailsWith(-1, EEXIST));
        EXPECT_EQ(with(route_del), 0);
        EXPECT_EQ(flags_, one.flags);
        EXPECT_EQ(sh("ip route"), before);
        EXPECT_THAT(with(route_del), FailsWith(-1, ESRCH));
    }
}

TEST_F(Routes, FailuresAreTheKernelsAndChangeNothing) {
    std::string before = sh("ip route");
    EXPECT_THAT(route_add(kHost, kHostMask, 0x0a630001, nullptr), FailsWith(-1, ENETUNREACH));
    EXPECT_THAT(route_add(kNetwork + 1, kNetMask, kGateway, nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(route_add(kHost, kHostMask, kGateway, "nosuch0"), FailsWith(-1, ENODEV));
    EXPECT_EQ(route_add_host(kHost, kHost, "eth1"), 1);
    EXPECT_THAT(without_descriptors([&] { return route_add(0, 0, kGateway, "eth1"); }),
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
    lab::Fenced name(std::string_view("lo", 3)); // the kernel reads 15 bytes of what it is given
    EXPECT_EQ(route_add(kHost, kHostMask, 0, name.data()), 0);
}

TEST_F(Routes, ThinFormsDoTheSame) {
    EXPECT_EQ(route_add_default(kGateway, "eth1"), 0);
    EXPECT_EQ(sh("ip route show default"), "default via 10.1.0.1 dev eth1 \n");
    EXPECT_EQ(wan_delDefaultRoute(kGateway), 0);
    EXPECT_EQ(wan_addDefaultRoute(kGateway, "eth1"), 0);
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
    EXPECT_EQ(without_descriptors([] { return get_default_route(nullptr); }), 0U);
}

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
        {head + "ppp0\t0x0 0xff 0XFFFF -1 +2 3 000 and more", 0xff000000, "ppp0"},
        {head + lan + "br0 0 0 1 0 0 0\n" + wan, 0}, // a malformed line ends the scan
        {head + "br0 0 0 1 0 zero 0 0\n" + wan, 0},
        {head + lan + "\n" + wan, 0},
        {wan, 0}, // the first line never counts
        {"", 0},
        {head + "ppp0 0 0102030A 0001 0 0 0 0\n", 0},       // no gateway
        {head + "ppp0 0 0102030A 0002 0 0 0 0\n", 0},       // not up
        {head + "ppp0 0 0102030A 0003 0 0 0 1\n", 0},       // a mask
        {head + "ppp0 1 0102030A 0003 0 0 0 0\n", 0},       // a destination
        {head + "ppp0 0 00000000 0003 0 0 0 0\n" + wan, 0}, // an IPv6 gateway
        {head + "fifteen-letters 0 FF 3 0 0 0 0\n", 0xff000000, "fifteen-letters"},
        {head + "sixteen-letters+ 0 FF 3 0 0 0 0\n" + wan, 0}, // "+" is no address
        // What does not fit 255 characters is a line of its own.
        {head + long_lan + wan, 0x0a030201, "ppp0"},
        {head + long_lan + "0\n" + wan, 0},
        {std::string(255, 'h') + wan, 0x0a030201, "ppp0"},
        {std::string(256, 'h') + "\n" + wan, 0},
    };
    // The folder is covered, not the file: the kernel looks its files up anew each time and so
    // would forget the mount.
    lab::put("/tmp/net/route", "");
    ASSERT_EQ(::mount("/tmp/net", "/proc/self/net", nullptr, MS_BIND, nullptr), 0);
    for (const Case &one : cases) {
        SCOPED_TRACE(one.text);
        lab::put("/tmp/net/route", one.text);
        Census census;
        std::string ifname = "untouched" + std::string(7, '\0') + "#";
        EXPECT_EQ(get_default_route(ifname.data()), one.gateway);
        std::string whole = one.ifname; // with zeros behind it
        whole.resize(IFNAMSIZ);
        EXPECT_EQ(ifname, whole + '#');
    }
    ::umount("/proc/self/net");
}

} // namespace
