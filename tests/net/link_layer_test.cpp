#include <routerkit/link-layer.h>

#include <cstring>

#include <net/if.h>

#include <routerkit/conversions.h>
#include <routerkit/ping.h>

#include "support/fake_ioctl.h"
#include "support/lab.h"

using lab::FailsWith;
using lab::sh;
using lab::without_descriptors;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint32_t kFar = 0x0a010001;    // 10.1.0.1
constexpr uint32_t kStatic = 0x0a010032; // 10.1.0.50

class OnACable : public testing::Test {
  protected:
    ~OnACable() override { lab::on_ioctl = nullptr; }

    lab::Host far_{"far", "fifteen-letters", "10.1.0.2/20", "10.1.0.1/20"};
    lab::Census census_;
};

TEST_F(OnACable, ArpEntryOfANeighbour) {
    sh("ip neigh add 10.1.0.50 lladdr 02:00:00:00:00:32 dev fifteen-letters nud permanent");
    char mac[] = "#######";
    EXPECT_THAT(arp_getMac(mac, kFar, "fifteen-letters"), FailsWith(-1, ENXIO));
    EXPECT_THAT(arp_getMac(mac, kStatic, "lo"), FailsWith(-1, ENXIO));
    EXPECT_THAT(arp_getMac(mac, kStatic, nullptr), FailsWith(-1, ENODEV)) << "Linux wants a name";
    EXPECT_THAT(arp_getMac(mac, kStatic, "fifteen-letters+"), FailsWith(-1, ENODEV));
    EXPECT_THAT(without_descriptors([&] { return arp_getMac(mac, kStatic, "fifteen-letters"); }),
                FailsWith(-1, EMFILE));
    EXPECT_STREQ(mac, "#######");
    EXPECT_EQ(arp_getMac(mac, kStatic, "fifteen-letters"), 1);
    EXPECT_EQ(std::string(mac, 7), std::string("\x02\0\0\0\0\x32#", 7));
}

TEST_F(OnACable, AddressesOfAnInterface) {
    std::vector<unsigned long> requests;
    lab::on_ioctl = [&](unsigned long request, void *) {
        requests.push_back(request);
        return std::nullopt;
    };
    char mac[] = "#######";
    uint32_t addr = 0, mask = 0;
    int index = 0;
    EXPECT_EQ(dev_getAddrs(mac, &addr, &mask, &index, "fifteen-letters"), 0);
    EXPECT_THAT(requests, ElementsAre(SIOCGIFINDEX, SIOCGIFHWADDR, SIOCGIFADDR, SIOCGIFNETMASK));
    EXPECT_EQ(addr, 0x0a010002U);
    EXPECT_EQ(mask, 0xfffff000U);
    EXPECT_EQ(index, static_cast<int>(::if_nametoindex("fifteen-letters")));
    EXPECT_EQ(mac_ntoa_3(mac) + std::string("\n"),
              lab::get("/sys/class/net/fifteen-letters/address"));
    EXPECT_EQ(mac[6], '#');

    requests.clear();
    EXPECT_EQ(dev_getAddrs(nullptr, nullptr, nullptr, nullptr, "nosuch0"), 0);
    EXPECT_THAT(requests, IsEmpty());
    EXPECT_EQ(dev_getAddrs(nullptr, nullptr, &mask, nullptr, "lo"), 0);
    EXPECT_THAT(requests, ElementsAre(SIOCGIFNETMASK));
    EXPECT_EQ(mask, 0xff000000U);
}

TEST_F(OnACable, AddressesUpToTheFirstFailure) {
    char mac[] = "######";
    uint32_t addr = 7, mask = 7;
    int index = 7;
    auto ask = [&](const char *ifname) { return dev_getAddrs(mac, &addr, &mask, &index, ifname); };
    EXPECT_THAT(ask("nosuch0"), FailsWith(-1, ENODEV));
    EXPECT_THAT(ask("fifteen-letters+"), FailsWith(-1, ENODEV));
    EXPECT_THAT(without_descriptors([&] { return ask("lo"); }), FailsWith(-1, EMFILE));
    EXPECT_STREQ(mac, "######");
    EXPECT_EQ(index, 7);
    sh("ip addr flush dev fifteen-letters");
    EXPECT_THAT(ask("fifteen-letters"), FailsWith(-1, EADDRNOTAVAIL));
    EXPECT_NE(index, 7);
    EXPECT_STRNE(mac, "######");
    EXPECT_EQ(addr + mask, 14U);
}

TEST_F(OnACable, SwitchDriverTakesFourWordsAndAnswersInTheFirst) {
    EXPECT_THAT(re865xIoctl("nosuch0", 2000, 0, 0, 0), FailsWith(-1, ENODEV));
    EXPECT_THAT(re865xIoctl("fifteen-letters-and-more", 2000, 0, 0, 0), FailsWith(-1, EOPNOTSUPP))
        << "the first 15 characters count";
    EXPECT_THAT(without_descriptors([] { return re865xIoctl("lo", 2000, 0, 0, 0); }),
                FailsWith(-3, EMFILE));
    int result = 0;
    lab::on_ioctl = [&](unsigned long request, void *record) {
        EXPECT_EQ(request, 0x89f0U);
        auto *words = reinterpret_cast<unsigned long *>(static_cast<ifreq *>(record)->ifr_data);
        EXPECT_THAT(std::vector(words, words + 4), ElementsAre(2000, 11, 22, 33));
        words[0] = ~0UL - 1;
        errno = EPERM;
        return result;
    };
    EXPECT_EQ(re865xIoctl("eth1", 2000, 11, 22, 33), 0xfffe);
    result = -1;
    EXPECT_THAT(re865xIoctl("eth1", 2000, 11, 22, 33), FailsWith(-1, EPERM));
    EXPECT_THAT(lab::take_log(), IsEmpty());
}

TEST(Bridge, RealOneKnowsItsStations) {
    sh("ip link add br0 type bridge && ip link set br0 up && ip addr add 10.1.0.2/24 dev br0 && "
       "ip link add lan1 address 02:00:00:00:00:aa type veth peer name far1 && "
       "ip link set lan1 master br0");
    lab::Host laptop("laptop", "cable0", "10.9.0.2/24", "10.1.0.1/24");
    sh("ip link set cable0 master br0");
    // A new port forwards as soon as the kernel has seen its carrier.
    ASSERT_TRUE(lab::wait_until([] { return ping_test("br0", &kFar, 1, 100, 0) == 1; }));
    lab::Census census;
    char mac[6];
    ASSERT_EQ(arp_getMac(mac, kFar, "br0"), 1);
    EXPECT_EQ(br_mac2port("br0", mac), 2) << "where its traffic came in";
    EXPECT_STREQ(br_mac2ifname("br0", mac), "eth2");
    EXPECT_EQ(br_mac2port("br0", "\x02\0\0\0\0\xaa"), 0) << "the bridge's own";
    EXPECT_EQ(br_mac2laname("br0", "\x02\0\0\0\0\x63"), nullptr) << "unknown";
    EXPECT_THAT(lab::take_log(), IsEmpty());

    EXPECT_THAT(br_mac2port("br1", mac), FailsWith(-1, ENODEV));
    EXPECT_EQ(br_mac2laname("lo", mac), nullptr);
    EXPECT_THAT(br_mac2port("a-bridge-of-many", mac), FailsWith(-1, ENODEV));
    EXPECT_THAT(without_descriptors([&] { return br_mac2port("br0", mac); }),
                FailsWith(-1, EMFILE));
    EXPECT_THAT(lab::take_log(), ElementsAre("err: br_mac2port: ioctl: No such device",
                                             "err: br_mac2port: ioctl: Operation not supported",
                                             "err: br_mac2port: ioctl: No such device",
                                             "err: br_mac2port: socket: Too many open files"));
}

// A forwarding database as a kernel with other limits might report it.
TEST(Bridge, DatabaseIsReadAsFarAsItWasWritten) {
    auto mac = [](int station) {
        return std::string("\x02\0\0\0\0", 5) + static_cast<char>(station);
    };
    std::string database;
    auto add = [&](int station, int port, bool local) {
        database += mac(station) + static_cast<char>(port) + static_cast<char>(local) + "aged" +
                    static_cast<char>(port >> 8) + "...";
    };
    int reported = 14;
    lab::on_ioctl = [&](unsigned long, void *record) {
        auto *words = reinterpret_cast<unsigned long *>(static_cast<ifreq *>(record)->ifr_data);
        EXPECT_THAT(std::vector(words, words + 4), ElementsAre(18, testing::_, 128, 0));
        database.copy(reinterpret_cast<char *>(words[1]), 2048);
        return reported;
    };
    struct Case {
        int port;
        const char *ifname, *label;
    };
    const Case cases[] = {
        {1, "eth0", "LAN1"},   {2, "eth2", "LAN2"},     {3, "eth3", "LAN3"},
        {4, "eth4", "LAN4"},   {5, "wlan0", "WLAN0"},   {6, "wlan1", "WLAN1"},
        {7, nullptr, nullptr}, {261, nullptr, nullptr},
    };
    for (int station = 0; station < 8; ++station) {
        add(station, 9, true); // first as one of the bridge's own
        add(station, cases[station].port, false);
    }
    for (int station = 0; station < 7; ++station) {
        EXPECT_EQ(br_mac2port("br0", mac(station).data()), cases[station].port);
        EXPECT_STREQ(br_mac2ifname("br0", mac(station).data()), cases[station].ifname);
        EXPECT_STREQ(br_mac2laname("br0", mac(station).data()), cases[station].label);
    }
    EXPECT_EQ(br_mac2port("br0", mac(7).data()), 0) << "not reported";
    reported = 200; // more than asked for: what lies behind the buffer is not looked at
    EXPECT_EQ(br_mac2port("br0", mac(7).data()), 261);
    EXPECT_EQ(br_mac2ifname("br0", mac(7).data()), nullptr) << "261 is not 5";
    EXPECT_EQ(br_mac2port("br0", mac(99).data()), 0);
    lab::on_ioctl = nullptr;
}

} // namespace
