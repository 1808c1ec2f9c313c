#include <routerkit/wan.h>

#include <sys/syscall.h>

#include "support/lab.h"
#include "support/syscalls.h"

using lab::FailsWith;
using lab::get;
using lab::put;
using testing::ElementsAre;

namespace {

std::string default_route() {
    std::string shown = lab::sh("ip route show default");
    return shown.empty() ? "" : shown.substr(8, shown.size() - 10); // less "default " and " \n"
}

std::string attribute(int index, const char *name) {
    return "/var/wan/" + std::to_string(index) + "/" + name;
}

// Three connections on links of their own: WAN1 on eth1, WAN2 on ppp0 above it, WAN3 on the modem.
class MainConnection : public testing::Test {
  protected:
    void SetUp() override {
        const char *ifnames[] = {"eth1", "ppp0", "usb0"};
        for (int i = 1; i <= 3; ++i) {
            std::string ifname = ifnames[i - 1];
            std::string net = "10." + std::to_string(i) + ".0.";
            lab::sh("ip link add " + ifname + " type veth peer name far" + std::to_string(i) +
                    " && ip link set far" + std::to_string(i) + " up && ip addr add " + net +
                    "2/24 dev " + ifname + " && ip link set " + ifname + " up");
            put(attribute(i, "con_iface"), ifname);
            put(attribute(i, "gateway"), net + "1");
            put(attribute(i, "resolv.conf"), "nameserver " + net + "1\n");
            put(attribute(i, "inet"), "");
            set_status(i, 1);
        }
        put(attribute(2, "parent"), "1\n");
        put(attribute(3, "modem"), "1");
        wan_link(2, "default");
        put("/var/resolv.conf", "old\n");
        lab::take_log();
    }

    static void set_status(int index, int code) {
        wan_updateIfStatus(static_cast<unsigned>(index), code);
    }
};

TEST_F(MainConnection, FallsBackToTheParentThenTheModemThenNone) {
    lab::Census census;
    auto expect_main = [](const char *active, const std::string &route, const char *servers,
                          const std::vector<const char *> &log) {
        EXPECT_EQ(wan_updateDefaultConnection(), 0);
        EXPECT_EQ(lab::sh("readlink /var/wan/active"), active);
        EXPECT_EQ(default_route(), route);
        EXPECT_EQ(get("/var/resolv.conf"), servers);
        EXPECT_THAT(lab::take_log(), testing::ElementsAreArray(log));
    };
    wan_setLinkFlag(1);
    set_status(1, 20);
    set_status(2, 20);
    expect_main("2\n", "via 10.2.0.1 dev ppp0", "nameserver 10.2.0.1\n",
                {"info: Now main connection is WAN2", "info: default route: 10.2.0.1 dev ppp0"});
    put("/var/resolv.conf", "untouched");
    expect_main("2\n", "via 10.2.0.1 dev ppp0", "untouched", {"info: Now main connection is WAN2"});
    set_status(2, 99);
    set_status(1, 11);
    expect_main("1\n", "via 10.1.0.1 dev eth1", "nameserver 10.1.0.1\n",
                {"info: Now main connection is WAN1", "info: default route: 10.1.0.1 dev eth1"});
    wan_setLinkFlag(0);
    put("/tmp/modem-iface", "usb0");
    wan_link(3, "modem");
    expect_main("3\n", "via 10.3.0.1 dev usb0", "nameserver 10.3.0.1\n",
                {"info: Now main connection is WAN3", "info: default route: 10.3.0.1 dev usb0"});
    wan_link(-1, "modem");
    expect_main(
        "default\n", "", "",
        {"info: Now has not main connection", "info: default route: deleted (was 10.3.0.1)"});
}

// What the walk from the default connection through its parents ends at.
TEST_F(MainConnection, WalksAtMostEightSteps) {
    auto main_connection = [] {
        wan_updateDefaultConnection();
        return wan_readLink("active");
    };
    wan_setLinkFlag(1);
    for (int i = 1; i <= 8; ++i) {
        put(attribute(i, "parent"), std::to_string(i % 8 + 1));
        set_status(i, 10);
    }
    wan_link(1, "default");
    EXPECT_EQ(main_connection(), 1) << "a ring: the eighth step is back where it began";
    set_status(8, 20);
    EXPECT_EQ(main_connection(), 8);
    for (const char *parent : {"0", "9", "-1", "junk"}) {
        put(attribute(4, "parent"), parent);
        EXPECT_EQ(main_connection(), 0) << parent;
    }
    lab::sh("rm /var/wan/4/parent");
    EXPECT_EQ(main_connection(), 0);

    wan_link(8, "default");
    EXPECT_EQ(main_connection(), 8);
    wan_link(-1, "default");
    EXPECT_EQ(main_connection(), 0) << "no default link";
    wan_setLinkFlag(0);
    put("/tmp/modem-iface", "usb0");
    wan_link(8, "default");
    EXPECT_EQ(main_connection(), 0) << "a modem without a link";
    wan_link(0, "modem");
    EXPECT_EQ(main_connection(), 0) << "a modem link that names none";
}

TEST_F(MainConnection, NoChangeMakesNoCallBeyondItsSteps) {
    wan_setLinkFlag(1);
    set_status(2, 20);
    wan_updateDefaultConnection();
    // The modem flag, the link flag, the default link, the status, the verdict's line in the log,
    // the active link.
    EXPECT_THAT(lab::system_calls([] { wan_updateDefaultConnection(); }),
                ElementsAre(lab::kStat, lab::kStat, SYS_readlink, SYS_openat, SYS_read, SYS_close,
                            lab::kSend, SYS_readlink));
}

TEST_F(MainConnection, RouteFollowsTheGateway) {
    struct Case {
        const char *before; // the default route
        unsigned index;
        const char *gateway; // of that connection
        const char *after;
        std::vector<const char *> log;
    };
    const char *const deleted = "info: default route: deleted (was 10.1.0.1)";
    const char *const nothing = "info: default route: nothing";
    const Case cases[] = {
        {"", 0, "", "", {"info: default route: no active connection"}},
        {"via 10.1.0.1 dev eth1", 0, "", "", {deleted}},
        {"via 10.1.0.1 dev ppp0 onlink", // whatever the interface
         1,
         "10.1.0.1",
         "via 10.1.0.1 dev ppp0 onlink",
         {"info: default route hasn't changed (10.1.0.1)"}},
        {"via 10.1.0.1 dev eth1",
         2,
         "10.2.0.1",
         "via 10.2.0.1 dev ppp0",
         {"info: default route: 10.2.0.1 dev ppp0"}},
        {"", 2, "10.77.0.1", "", {"info: default route: 10.77.0.1 dev ppp0"}}, // refused
        {"", 2, "", "", {nothing}},
        {"via 10.1.0.1 dev eth1", 2, "", "", {deleted, nothing}},
    };
    for (const Case &one : cases) {
        SCOPED_TRACE(one.log.front());
        lab::sh("ip route flush exact 0.0.0.0/0");
        if (*one.before != '\0') {
            lab::sh(std::string("ip route add default ") + one.before);
        }
        put(attribute(static_cast<int>(one.index), "gateway"), one.gateway);
        EXPECT_EQ(wan_updateActiveRoute(one.index), 0);
        EXPECT_EQ(default_route(), one.after);
        EXPECT_THAT(lab::take_log(), testing::ElementsAreArray(one.log));
    }
    put(attribute(2, "gateway"), "10.2.0.1");
    lab::sh("rm /var/wan/2/con_iface");
    wan_updateActiveRoute(2);
    EXPECT_EQ(default_route(), "via 10.2.0.1 dev ppp0") << "the kernel chooses";
    EXPECT_THAT(lab::take_log(), ElementsAre("info: default route: 10.2.0.1 dev any"));
}

TEST_F(MainConnection, WiredInternetNeedsAWiredGateway) {
    EXPECT_EQ(wan_hasWiredInetIP(), 1);
    lab::sh("rm /var/wan/2/gateway");
    EXPECT_EQ(wan_hasWiredInetIP(), 0);
    wan_link(1, "default");
    EXPECT_EQ(wan_hasWiredInetIP(), 1);
    lab::sh("rm /var/wan/1/inet");
    EXPECT_EQ(wan_hasWiredInetIP(), 0);
    wan_link(3, "default");
    EXPECT_EQ(wan_hasWiredInetIP(), 0) << "a modem";
    wan_link(-1, "default");
    EXPECT_EQ(wan_hasWiredInetIP(), 0);
}

TEST_F(MainConnection, NameServersFollow) {
    lab::Census census;
    EXPECT_EQ(wan_setDNSServer(0x08080808), 0);
    EXPECT_EQ(get("/var/resolv.conf"), "nameserver 8.8.8.8\n");
    EXPECT_EQ(wan_setDNSServer(0), 0);
    EXPECT_EQ(get("/var/resolv.conf"), "");

    const uint32_t servers[] = {0x0a020001, 0, 0x0a020002};
    const char *const text = "nameserver 10.2.0.1\nnameserver 10.2.0.2\n";
    EXPECT_EQ(wan_writeWanResolvConf(2, servers, 3), 40);
    uint32_t back[3] = {};
    EXPECT_EQ(wan_readWanResolvConf(2, back, 3), 2);
    EXPECT_EQ(back[1], 0x0a020002U);
    EXPECT_EQ(wan_updateActiveDNS(2), 0);
    EXPECT_EQ(get("/var/resolv.conf"), text);
    EXPECT_THAT(wan_updateActiveDNS(7), FailsWith(-1, ENOENT));
    EXPECT_THAT(lab::take_log(),
                ElementsAre("err: fail to read WAN7 resolv.conf: No such file or directory"));
    EXPECT_EQ(get("/var/resolv.conf"), text) << "left alone";
    put(attribute(1, "resolv.conf"), std::string(3000, '#'));
    EXPECT_EQ(wan_updateActiveDNS(1), 0);
    EXPECT_EQ(get("/var/resolv.conf"), std::string(2047, '#'));
    EXPECT_EQ(wan_updateActiveDNS(0), 0);
    EXPECT_EQ(get("/var/resolv.conf"), "");

    EXPECT_EQ(wan_updateDefaultDNS(1), 0);
    EXPECT_EQ(get("/var/resolv.conf"), "") << "without an active link nothing happens";
    wan_link(2, "active");
    EXPECT_EQ(wan_updateDefaultDNS(2), 0);
    EXPECT_EQ(get("/var/resolv.conf"), "");
    EXPECT_EQ(wan_updateDefaultDNS(1), 0);
    EXPECT_EQ(get("/var/resolv.conf"), text);
    lab::sh("rm /var/resolv.conf && mkdir /var/resolv.conf");
    EXPECT_THAT(wan_updateActiveDNS(2), FailsWith(-1, EISDIR));
    EXPECT_THAT(wan_setDNSServer(1), FailsWith(-1, EISDIR));
}

} // namespace
