#include <routerkit/link-layer.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <functional>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <routerkit/ping.h>

#include "support/lab.h"

using lab::Census;
using lab::FailsWith;
using lab::sh;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<unsigned long> requests;                      // the ioctls made, in their order
std::function<int(ifreq &, unsigned long *words)> driver; // answers SIOCDEVPRIVATE, if set

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    requests.push_back(request);
    if (request == SIOCDEVPRIVATE && driver) {
        auto &record = *static_cast<ifreq *>(argument);
        return driver(record, reinterpret_cast<unsigned long *>(record.ifr_data));
    }
    return static_cast<int>(::syscall(SYS_ioctl, fd, request, argument));
}

namespace {

constexpr uint32_t kFar = 0x0a010001;    // 10.1.0.1
constexpr uint32_t kStatic = 0x0a010032; // 10.1.0.50
constexpr uint32_t kSilent = 0x0a010033; // 10.1.0.51
constexpr char kMac[] = "\x02\x00\x00\x00\x00\x32";

class OnACable : public testing::Test {
  protected:
    ~OnACable() override { driver = nullptr; }

    lab::Host far_{"far", "fifteen-letters", "10.1.0.2/20", "10.1.0.1/20"};
    Census census_;
};

std::string text(const char (&mac)[7]) {
    return {mac, 6};
}

using ArpGetMac = OnACable;

TEST_F(ArpGetMac, ReadsTheNeighboursOfOneInterface) {
    sh("ip neigh add 10.1.0.50 lladdr 02:00:00:00:00:32 dev fifteen-letters nud permanent");
    char mac[7] = "######";
    EXPECT_THAT(arp_getMac(mac, kFar, "fifteen-letters"), FailsWith(-1, ENXIO));
    EXPECT_THAT(arp_getMac(mac, kStatic, "lo"), FailsWith(-1, ENXIO));
    EXPECT_THAT(arp_getMac(mac, kStatic, nullptr), FailsWith(-1, ENODEV)) << "Linux wants a name";
    EXPECT_THAT(arp_getMac(mac, kStatic, "fifteen-letters+"), FailsWith(-1, ENODEV));
    EXPECT_THAT(arp_getMac(mac, kStatic, "nosuch0"), FailsWith(-1, ENODEV));
    EXPECT_THAT(
        lab::without_descriptors([&] { return arp_getMac(mac, kStatic, "fifteen-letters"); }),
        FailsWith(-1, EMFILE));
    EXPECT_STREQ(mac, "######");
    EXPECT_EQ(arp_getMac(mac, kStatic, "fifteen-letters"), 1);
    EXPECT_EQ(text(mac), std::string(kMac, 6));
    EXPECT_EQ(mac[6], '\0');
}

TEST_F(ArpGetMac, IncompleteEntryIsTheKernelsAffair) {
    int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in silent = {AF_INET, htons(9), {htonl(kSilent)}, {}};
    ::sendto(fd, "?", 1, 0, reinterpret_cast<sockaddr *>(&silent), sizeof silent);
    ::close(fd);
    EXPECT_THAT(lab::get("/proc/net/arp"), testing::HasSubstr("10.1.0.51"));
    char mac[7] = "######";
    EXPECT_EQ(arp_getMac(mac, kSilent, "fifteen-letters"), 1);
    EXPECT_EQ(text(mac), std::string(6, '\0'));
}

using DevGetAddrs = OnACable;

TEST_F(DevGetAddrs, AsksForWhatIsWantedAlone) {
    char mac[7] = "######";
    uint32_t addr = 0, mask = 0;
    int index = 0;
    requests.clear();
    EXPECT_EQ(dev_getAddrs(mac, &addr, &mask, &index, "fifteen-letters"), 0);
    EXPECT_THAT(requests, ElementsAre(SIOCGIFINDEX, SIOCGIFHWADDR, SIOCGIFADDR, SIOCGIFNETMASK));
    EXPECT_EQ(addr, 0x0a010002U);
    EXPECT_EQ(mask, 0xfffff000U);
    EXPECT_EQ(index, static_cast<int>(::if_nametoindex("fifteen-letters")));
    char shown[18];
    std::snprintf(shown, sizeof shown, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0] & 255, mac[1] & 255,
                  mac[2] & 255, mac[3] & 255, mac[4] & 255, mac[5] & 255);
    EXPECT_EQ(std::string(shown) + "\n", lab::get("/sys/class/net/fifteen-letters/address"));
    EXPECT_EQ(mac[6], '\0');

    requests.clear();
    EXPECT_EQ(dev_getAddrs(nullptr, nullptr, &mask, nullptr, "lo"), 0);
    EXPECT_THAT(requests, ElementsAre(SIOCGIFNETMASK));
    EXPECT_EQ(mask, 0xff000000U);
    requests.clear();
    EXPECT_EQ(dev_getAddrs(nullptr, nullptr, nullptr, nullptr, "nosuch0"), 0);
    EXPECT_THAT(requests, IsEmpty());
}

TEST_F(DevGetAddrs, StopsAtTheFirstFailure) {
    char mac[7] = "######";
    uint32_t addr = 7, mask = 7;
    int index = 7;
    EXPECT_THAT(dev_getAddrs(mac, &addr, &mask, &index, "nosuch0"), FailsWith(-1, ENODEV));
    EXPECT_THAT(dev_getAddrs(mac, &addr, &mask, &index, "fifteen-letters+"), FailsWith(-1, ENODEV));
    EXPECT_THAT(
        lab::without_descriptors([&] { return dev_getAddrs(mac, &addr, &mask, &index, "lo"); }),
        FailsWith(-1, EMFILE));
    EXPECT_STREQ(mac, "######");
    EXPECT_EQ(index, 7);
    sh("ip addr flush dev fifteen-letters");
    EXPECT_THAT(dev_getAddrs(mac, &addr, &mask, &index, "fifteen-letters"),
                FailsWith(-1, EADDRNOTAVAIL));
    EXPECT_NE(index, 7);
    EXPECT_STRNE(mac, "######");
    EXPECT_EQ(addr, 7U);
    EXPECT_EQ(mask, 7U);
}

using SwitchDriver = OnACable;

TEST_F(SwitchDriver, ReceivesFourWordsAndAnswersInTheFirst) {
    int32_t link = 0;
    driver = [&](ifreq &record, unsigned long *words) {
        EXPECT_STREQ(record.ifr_name, "twenty-letters-");
        EXPECT_THAT(std::vector(words, words + 4),
                    ElementsAre(2000, 1, ~0UL, reinterpret_cast<unsigned long>(&link)));
        *reinterpret_cast<int32_t *>(words[3]) = -5;
        words[0] = 0x12348001;
        return 0;
    };
    EXPECT_EQ(
        re865xIoctl("twenty-letters-long-", 2000, 1, ~0UL, reinterpret_cast<unsigned long>(&link)),
        0x8001);
    EXPECT_EQ(link, -5);
    driver = [](ifreq &record, unsigned long *) {
        EXPECT_STREQ(record.ifr_name, "eth1");
        return 3;
    };
    EXPECT_EQ(re865xIoctl("eth1", 0x1ffff, 0, 0, 0), 0xffff) << "the command, left as it was";
}

TEST_F(SwitchDriver, FailuresAreToldApart) {
    driver = [](ifreq &, unsigned long *words) {
        words[0] = 7;
        errno = EPERM;
        return -1;
    };
    EXPECT_THAT(re865xIoctl("eth1", 2000, 0, 0, 0), FailsWith(-1, EPERM));
    driver = nullptr; // the kernel's own answers
    EXPECT_THAT(re865xIoctl("nosuch0", 2000, 0, 0, 0), FailsWith(-1, ENODEV));
    EXPECT_THAT(re865xIoctl("fifteen-letters-and-more", 2000, 0, 0, 0), FailsWith(-1, EOPNOTSUPP));
    EXPECT_THAT(lab::take_log(), IsEmpty());
    EXPECT_THAT(lab::without_descriptors([&] { return re865xIoctl("eth1", 2000, 0, 0, 0); }),
                FailsWith(-3, EMFILE));
}

// A bridge with seven ports; a station 02:00:00:00:00:0N was learnt behind port N.
class Bridge : public testing::Test {
  protected:
    Bridge() {
        sh("ip link add br0 type bridge && ip link set br0 up");
        for (char port = '1'; port <= '7'; ++port) {
            std::string name = std::string("lan") + port;
            sh("ip link add " + name + " type veth peer name far" + port + " && ip link set " +
               name + " master br0 && bridge fdb add 02:00:00:00:00:0" + port + " dev " + name +
               " master static");
        }
    }
    ~Bridge() override {
        driver = nullptr;
        sh("ip link del br0");
        for (char port = '1'; port <= '7'; ++port) {
            sh(std::string("ip link del lan") + port);
        }
    }

    static std::string station(int number) {
        return std::string("\x02\0\0\0\0", 5) + static_cast<char>(number);
    }
};

TEST_F(Bridge, PortsHaveNamesAndLabels) {
    struct Case {
        int port;
        const char *ifname, *label;
    };
    Census census;
    for (const Case &one :
         {Case{1, "eth0", "LAN1"}, Case{2, "eth2", "LAN2"}, Case{3, "eth3", "LAN3"},
          Case{4, "eth4", "LAN4"}, Case{5, "wlan0", "WLAN0"}, Case{6, "wlan1", "WLAN1"},
          Case{7, nullptr, nullptr}}) {
        std::string mac = station(one.port);
        EXPECT_EQ(br_mac2port("br0", mac.data()), one.port);
        EXPECT_STREQ(br_mac2ifname("br0", mac.data()), one.ifname);
        EXPECT_STREQ(br_mac2laname("br0", mac.data()), one.label);
    }
}

TEST_F(Bridge, OwnAndUnknownAddressesHaveNoPort) {
    sh("ip link set lan2 address 02:00:00:00:00:aa");
    EXPECT_THAT(sh("bridge fdb show br br0"), testing::HasSubstr("02:00:00:00:00:aa dev lan2"));
    Census census;
    for (int number : {0xaa, 0x63}) {
        std::string mac = station(number);
        EXPECT_EQ(br_mac2port("br0", mac.data()), 0);
        EXPECT_EQ(br_mac2ifname("br0", mac.data()), nullptr);
        EXPECT_EQ(br_mac2laname("br0", mac.data()), nullptr);
    }
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST_F(Bridge, StationIsFoundWhereItsTrafficCameIn) {
    lab::Host laptop("laptop", "cable0", "10.9.0.2/24", "10.1.0.1/24");
    sh("ip link set cable0 master br0 && ip addr add 10.1.0.2/24 dev br0");
    ASSERT_EQ(ping_test("br0", &kFar, 1, 1000, 0), 1);
    char mac[7] = {};
    ASSERT_EQ(arp_getMac(mac, kFar, "br0"), 1);
    EXPECT_EQ(br_mac2port("br0", mac), 8);
}

TEST_F(Bridge, FailuresAreLogged) {
    std::string mac = station(1);
    Census census;
    EXPECT_THAT(br_mac2port("br1", mac.data()), FailsWith(-1, ENODEV));
    EXPECT_EQ(br_mac2laname("lo", mac.data()), nullptr);
    EXPECT_THAT(br_mac2port("a-bridge-of-many", mac.data()), FailsWith(-1, ENODEV));
    EXPECT_THAT(lab::without_descriptors([&] { return br_mac2port("br0", mac.data()); }),
                FailsWith(-1, EMFILE));
    EXPECT_EQ(lab::without_descriptors([&] { return br_mac2ifname("br0", mac.data()); }), nullptr);
    EXPECT_THAT(lab::take_log(), ElementsAre("err: br_mac2port: ioctl: No such device",
                                             "err: br_mac2port: ioctl: Operation not supported",
                                             "err: br_mac2port: ioctl: No such device",
                                             "err: br_mac2port: socket: Too many open files",
                                             "err: br_mac2port: socket: Too many open files"));
}

// A forwarding database as a kernel with other limits might report it.
TEST(BridgeDatabase, IsReadAsFarAsItWasWritten) {
    std::string database;
    auto add = [&](int number, int port, bool local) {
        std::string entry = std::string("\x02\0\0\0\0", 5) + static_cast<char>(number);
        entry += static_cast<char>(port & 255);
        entry += static_cast<char>(local);
        entry += std::string("\x11\x22\x33\x44", 4) + static_cast<char>(port >> 8);
        database += entry + std::string(3, '\0');
    };
    int reported = 0;
    driver = [&](ifreq &record, unsigned long *words) {
        EXPECT_STREQ(record.ifr_name, "br0");
        EXPECT_THAT(std::vector(words, words + 4), ElementsAre(18, testing::_, 128, 0));
        size_t size = std::min(database.size(), size_t{2048});
        std::memcpy(reinterpret_cast<char *>(words[1]), database.data(), size);
        return reported;
    };
    add(1, 3, true); // the same address first as one of the bridge's own
    add(1, 0x0105, false);
    add(2, 300, false);
    add(1, 4, false);
    add(3, 255, false);
    reported = 5;
    auto port = [](int number) {
        std::string mac = std::string("\x02\0\0\0\0", 5) + static_cast<char>(number);
        EXPECT_EQ(br_mac2laname("br0", mac.data()), nullptr) << "port 261 is not port 5";
        return br_mac2port("br0", mac.data());
    };
    EXPECT_EQ(port(1), 261);
    EXPECT_EQ(port(2), 300);
    EXPECT_EQ(port(3), 255);
    reported = 4;
    EXPECT_EQ(port(3), 0) << "not reported";
    while (database.size() < 2048) {
        add(9, 9, false);
    }
    reported = 200; // more than asked for: what lies behind the buffer is not looked at
    EXPECT_EQ(port(99), 0);
    EXPECT_EQ(port(9), 9);
    driver = nullptr;
}

} // namespace
