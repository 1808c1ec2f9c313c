#include <routerkit/wan.h>

#include <cstring>

#include <routerkit/strings.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::put;

namespace {

TEST(WanPaths, NameTheFolderOfAnIndexInOneSlotEach) {
    char *first = wan_file(0, "ip");
    EXPECT_STREQ(first, "/var/wan/default/ip");
    EXPECT_STREQ(wan_file(255, _WAN_IP_FILE), "/var/wan/tr069/ip");
    EXPECT_STREQ(wan_file(3, "ip"), "/var/wan/3/ip");
    EXPECT_STREQ(wan_folder(8), "/var/wan/8");
    EXPECT_STREQ(wan_run_folder(1), "/var/wan/1/run");
    EXPECT_STREQ(wan_pid_file(2, "x"), "/var/wan/2/run/x.pid");
    strf("the seventh");
    wan_getIP(1, nullptr); // nothing else takes a slot
    wan_getConIface(1);
    wan_isInet(1);
    wan_startSession(1);
    strf("the eighth");
    EXPECT_EQ(strf("the first again"), first);
}

TEST(WanAttributes, Numbers) {
    lab::Census census;
    EXPECT_THAT(wan_getIndex(1), FailsWith(-1, ENOENT));
    EXPECT_EQ(wan_getIfIndex(1), -1);
    EXPECT_EQ(wan_getType(1), -1);
    EXPECT_EQ(wan_getVlanId(1), 0);
    EXPECT_EQ(wan_getModemType(1), 0);
    EXPECT_EQ(wan_getPurpose(1), 1);
    put("/var/wan/1/index", "1\n");
    put("/var/wan/1/iface_index", " 17 and more");
    put("/var/wan/1/type", "3");
    put("/var/wan/1/vlan", "-2");
    put("/var/wan/1/modem", "2");
    put("/var/wan/1/purpose", "");
    EXPECT_EQ(wan_getIndex(1), 1);
    EXPECT_EQ(wan_getIfIndex(1), 17);
    EXPECT_EQ(wan_getType(1), 3);
    EXPECT_EQ(wan_getVlanId(1), 0);
    EXPECT_EQ(wan_getModemType(1), 2);
    EXPECT_EQ(wan_getPurpose(1), 0) << "an empty file reads as 0";
    const int by_bits_1_to_4[] = {0, 0, 1, 1, 2, 3, 1, 1, 4, 1, 1, 1, 1, 1, 1, 1};
    for (int services = -64; services < 64; ++services) {
        EXPECT_EQ(serviceListToAppType(services), by_bits_1_to_4[(services & 30) / 2]) << services;
    }
}

TEST(WanAttributes, Addresses) {
    struct Case {
        const char *text;
        uint32_t address;
        int prefix; // -1: untouched
    };
    for (const Case &one : {Case{"10.1.2.3/24", 0x0a010203, 24}, Case{"10.1.2.3", 0x0a010203, -1},
                            Case{"", 0, -1}, Case{"255.255.255.255/32xyz", 0xffffffff, 32}}) {
        put("/var/wan/2/ip", one.text);
        int prefix = -1;
        EXPECT_EQ(wan_getIP(2, &prefix), one.address) << one.text;
        EXPECT_EQ(prefix, one.prefix) << one.text;
        EXPECT_EQ(wan_getIP(2, nullptr), one.address);
    }
    EXPECT_EQ(wan_getIP(3, nullptr), 0U);
    EXPECT_EQ(wan_getGateway(2), 0U);
    put("/var/wan/2/gateway", std::string(12, ' ') + "1.2.3.45");
    EXPECT_EQ(wan_getGateway(2), 0x01020304U) << "19 characters are read";
}

TEST(WanAttributes, InterfaceNames) {
    lab::Census census;
    char buffer[20] = "untouched";
    EXPECT_THAT(wan_getConIface(1), FailsWith(nullptr, ENOENT));
    EXPECT_THAT(wan_getConIfName(1, buffer), FailsWith(-1, ENOENT));
    EXPECT_THAT(wan_getModemIface(buffer, sizeof buffer), FailsWith(-1, ENOENT));
    EXPECT_STREQ(buffer, "untouched");
    put("/var/wan/1/con_iface", "ppp0");
    put("/var/wan/1/eth_iface", "eth1.2");
    put("/var/wan/8/phy_iface", "interface-name-too-long");
    put("/tmp/modem-iface", "usb0");
    EXPECT_EQ(wan_getConIfName(1, buffer), 4);
    EXPECT_STREQ(buffer, "ppp0");
    EXPECT_EQ(wan_getPhyIfName(8, buffer), 19);
    EXPECT_EQ(wan_getEthIfName(1, buffer), 6);
    EXPECT_EQ(getWanIfName(1, buffer, 3), 2);
    EXPECT_STREQ(buffer, "et");
    EXPECT_EQ(wan_getModemIface(buffer, sizeof buffer), 4);
    EXPECT_STREQ(buffer, "usb0");
    EXPECT_EQ(getWanIfName(1, nullptr, 20) + wan_getModemIface(nullptr, 20), -2);

    char *one = wan_getConIface(1);
    EXPECT_STREQ(wan_getPhyIface(8), "interface-name-too-") << "19 characters";
    EXPECT_STREQ(wan_getEthIface(1), "eth1.2");
    EXPECT_STREQ(one, "ppp0");
    put("/var/wan/1/con_iface", "");
    EXPECT_EQ(wan_getConIface(1), one);
    EXPECT_STREQ(one, "") << "an empty file is readable";
    put("/var/wan/9/con_iface", "ppp9");
    for (unsigned index : {9U, 255U, 4000000000U}) {
        EXPECT_EQ(wan_getConIface(index), nullptr);
    }
}

TEST(WanAttributes, PresenceIsEnough) {
    EXPECT_EQ(wan_isModem(1) + wan_isInet(1) + wan_isEnabled(1), 0);
    put("/var/wan/1/inet", "0");
    EXPECT_EQ(wan_isInet(1), 1);
    put("/var/wan/1/enabled", "");
    EXPECT_EQ(wan_isEnabled(1), 1);
    EXPECT_EQ(wan_isModem(1), 0);
    put("/var/wan/1/modem", "");
    EXPECT_EQ(wan_isModem(1), 1);
}

TEST(WanAttributes, IndexOfAnInterface) {
    put("/var/wan/3/con_iface", "ppp0\n");
    put("/var/wan/9/con_iface", "ppp0");
    EXPECT_EQ(wan_getIdxByIface("ppp0"), -1) << "the newline counts, and 9 is no connection";
    put("/var/wan/8/con_iface", "ppp0");
    EXPECT_EQ(wan_getIdxByIface("ppp0"), 8);
    put("/var/wan/4/con_iface", "ppp0");
    EXPECT_EQ(wan_getIdxByIface("ppp0"), 4);
    EXPECT_EQ(wan_getIdxByIface("ppp"), -1);
    EXPECT_EQ(wan_getIdxByIface(nullptr), -1);
}

TEST(WanAttributes, RealInterfaceNameEndsAtTheDot) {
    const std::string longest(31, 'x');
    for (const auto &[name, cut] : {std::pair<std::string, std::string>{"eth1.2", "eth1"},
                                    {"a.b.c", "a"},
                                    {"eth1", "eth1"},
                                    {longest + ".1", longest},
                                    {longest + "x.1", longest + "x.1"}}) {
        lab::Fenced text(std::string_view(name.c_str(), name.size() + 1));
        EXPECT_EQ(GET_REAL_IFNAME(text.data()), name == cut ? 0 : 1) << name;
        EXPECT_EQ(cut, text.data());
    }
    EXPECT_EQ(GET_REAL_IFNAME(nullptr), 0);
}

TEST(WanAttributes, StatisticsFollowThePppoeConnection) {
    put("/var/wan/1/con_iface", "eth1.5");
    put("/var/wan/2/con_iface", "ppp0");
    put("/var/wan/3/con_iface", "ppp1");
    put("/var/wan/2/type", "1");
    EXPECT_STREQ(wan_getMagicConIfNameForStatistics(1), "eth1.5");
    put("/var/wan/2/type", "3");
    put("/var/wan/3/type", "3");
    EXPECT_STREQ(wan_getMagicConIfNameForStatistics(1), "ppp0");
    EXPECT_STREQ(wan_getMagicConIfNameForStatistics(7), "ppp0");
    wan_link(1, "default");
    EXPECT_STREQ(wan_getMagicConIfNameForStatistics(1), "eth1");
    EXPECT_STREQ(wan_getMagicConIfNameForStatistics(2), "ppp0");
    wan_getMagicConIfName();
}

TEST(WanLinks, NameAConnection) {
    lab::Census census;
    put("/var/wan/5/ip", "10.0.0.5");
    EXPECT_EQ(wan_getDefault(), -1);
    EXPECT_EQ(wan_link(5, "default"), 0);
    EXPECT_EQ(lab::sh("readlink /var/wan/default"), "5\n");
    EXPECT_EQ(wan_getDefault(), 5);
    EXPECT_EQ(wan_isDefault(5), 1);
    EXPECT_EQ(wan_isDefault(0), 0);
    EXPECT_EQ(wan_getIP(0, nullptr), 0x0a000005U) << "reached through the link";
    EXPECT_EQ(wan_link(0, "active"), 0);
    EXPECT_EQ(lab::sh("readlink /var/wan/active"), "default\n");
    EXPECT_EQ(wan_readLink("active"), 0);
    EXPECT_EQ(wan_link(2, "modem"), 0);
    EXPECT_EQ(wan_getModemIndex(), 2);
    EXPECT_EQ(wan_link(-1, "modem"), 0);
    EXPECT_EQ(wan_getModemIndex(), -1);
    EXPECT_EQ(wan_link(-1, "modem"), 0) << "nothing there to remove";
    EXPECT_EQ(wan_resolve(255), -1);
    wan_link(0, "tr069");
    EXPECT_EQ(wan_resolve(255), 5);
    wan_link(7, "tr069");
    EXPECT_EQ(wan_resolve(255), 7);
    EXPECT_EQ(wan_resolve(0), 5);
    EXPECT_EQ(wan_resolve(3), 3);
}

TEST(WanLinks, Failures) {
    EXPECT_THAT(wan_readLink("missing"), FailsWith(-1, ENOENT));
    EXPECT_THAT(wan_link(1, "missing/folder"), FailsWith(-1, ENOENT));
    put("/var/wan/folder/file", "");
    EXPECT_THAT(wan_readLink("folder"), FailsWith(-1, EINVAL));
    EXPECT_THAT(wan_link(1, "folder"), FailsWith(-1, EEXIST)) << "a folder is not removed";
    std::string longer(2039, 'x');
    EXPECT_THAT(wan_link(1, longer.c_str()), FailsWith(-1, ENOBUFS));
    EXPECT_THAT(wan_readLink(longer.c_str()), FailsWith(-1, ENOBUFS));
}

} // namespace
