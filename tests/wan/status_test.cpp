#include <routerkit/wan.h>

#include <cstring>

#include <net/if.h>

#include "support/fake_clock.h"
#include "support/fake_ioctl.h"
#include "support/lab.h"

using lab::exists;
using lab::FailsWith;
using lab::get;
using lab::put;
using lab::set_raw_clock_ms;

namespace {

TEST(WanStatus, TextsOfEveryCode) {
    struct Case {
        int code;
        const char *stored;
        const char *shown = "Неизвестная ошибка";
    };
    const Case cases[] = {
        {0, "00 disabled", "WAN отсутствует"},
        {1, "01 disconnected", "Соединение отсутствует"},
        {10, "10 connecting"},
        {11, "11 in idle"},
        {12, "12 requested ip"},
        {20, "20 connected", "Подключено"},
        {90, "90 no auth", "Ошибка авторизации"},
        {91, "91 no server", "Сервер недоступен"},
        {92, "92 no PADO"},
        {93, "93 no PADS"},
        {94, "94 no AC"},
        {95, "95 no IP"},
        {99, "99 error", "Ошибка подключения"},
        {13, "99 error", "Ошибка подключения"},
        {-1, "99 error", "Ошибка подключения"},
    };
    EXPECT_THAT(wan_updateIfStatus(2, 20), FailsWith(-1, ENOENT));
    EXPECT_EQ(wan_getStatus(2), -1);
    EXPECT_STREQ(wan_getTextStatus(2), "Неизвестная ошибка");
    put("/var/wan/2/status", "");
    EXPECT_EQ(wan_getStatus(2), 0);
    for (const Case &one : cases) {
        EXPECT_EQ(wan_updateIfStatus(2, one.code), static_cast<int>(std::strlen(one.stored)));
        EXPECT_EQ(get("/var/wan/2/status"), one.stored);
        EXPECT_EQ(wan_getStatus(2), std::atoi(one.stored));
        EXPECT_STREQ(wan_getTextStatus(2), one.shown) << one.code;
    }
    EXPECT_EQ(WAN_STATUS_T, 0);
}

TEST(WanFlags, FollowTheirFiles) {
    lab::Census census;
    put("/var/wan/1/type", "1");
    EXPECT_EQ(wan_hasLinkFlag() + wan_hasModemFlag() + wan_hasWiredInetFlag(), 0);
    EXPECT_THAT(wan_setLinkFlag(0), FailsWith(-1, ENOENT));
    EXPECT_EQ(wan_setLinkFlag(1), 0);
    EXPECT_TRUE(exists("/var/wan/link-up"));
    EXPECT_EQ(wan_hasLinkFlag(), 1);
    EXPECT_EQ(wan_hasWiredInetFlag(), 1) << "without a modem the link flag counts";
    EXPECT_EQ(wan_isLinked(1), 1);
    put("/var/wan/1/modem", "4");
    EXPECT_EQ(wan_isLinked(1), 0) << "a modem connection has the modem's flag";

    EXPECT_EQ(wan_setModemFlag(7), 0);
    EXPECT_TRUE(exists("/var/wan/modem-up"));
    EXPECT_EQ(wan_isLinked(1), 1);
    EXPECT_EQ(wan_hasWiredInetFlag(), 0) << "whatever the link flag says";
    EXPECT_EQ(wan_setWiredInetFlag(1), 0);
    EXPECT_TRUE(exists("/var/wan/wired-inet-up"));
    EXPECT_EQ(wan_hasWiredInetFlag(), 1);

    for (int result : {0, -1}) {
        wan_link(1, "modem");
        EXPECT_EQ(wan_setModemFlag(0), result);
        EXPECT_FALSE(exists("/var/wan/modem")) << "the link goes even when the flag was not set";
        EXPECT_FALSE(exists("/var/wan/modem-up"));
    }
    EXPECT_EQ(wan_getModemStatus(), 0);
    put("/tmp/modem-iface", "");
    EXPECT_EQ(wan_getModemStatus(), 1);
}

TEST(WanLink, AsksTheSwitchDriver) {
    int32_t link = 0;
    int result = 0;
    lab::on_ioctl = [&](unsigned long, void *record) {
        auto &request = *static_cast<ifreq *>(record);
        auto *words = reinterpret_cast<unsigned long *>(request.ifr_data);
        EXPECT_STREQ(request.ifr_name, "eth1");
        EXPECT_THAT(std::vector(words, words + 3), testing::ElementsAre(2000, 0, 0));
        if (result == 0) {
            *reinterpret_cast<int32_t *>(words[3]) = link;
        }
        return result;
    };
    EXPECT_EQ(wan_getLinkStatus(), 1);
    link = 100;
    EXPECT_EQ(wan_getLinkStatus(), 1);
    link = -1;
    EXPECT_EQ(wan_getLinkStatus(), 0);
    link = 1;
    result = -1;
    EXPECT_EQ(wan_getLinkStatus(), 0) << "the query failed";
    lab::on_ioctl = nullptr;
}

TEST(WanSessions, AddUpToTheirTotals) {
    lab::Census census;
    put("/var/wan/1/type", "1");
    EXPECT_EQ(wan_stopSession(1), 0);
    EXPECT_FALSE(exists("/var/wan/1/last-downtime")) << "no session, nothing to stop";
    EXPECT_EQ(wan_getDisconnectReason(1), 0);
    set_raw_clock_ms(1000000);
    EXPECT_EQ(wan_getUptime(1), 1001U) << "a missing file reads as -1";
    EXPECT_EQ(wan_startSession(1), 0);
    set_raw_clock_ms(1040000);
    wan_startSession(1);
    EXPECT_EQ(get("/var/wan/1/uptime"), "1000\n") << "a running session keeps its start";
    EXPECT_EQ(wan_getUptime(1), 40U);
    EXPECT_EQ(wan_getAllSessionsTime(1), 40U);
    EXPECT_EQ(wan_getPPPoESessionsTime(1), 0U);
    set_raw_clock_ms(1060000);
    EXPECT_EQ(wan_stopSession(1), 0);
    EXPECT_FALSE(exists("/var/wan/1/uptime"));
    EXPECT_EQ(get("/var/wan/1/last-uptime"), "1000\n");
    EXPECT_EQ(get("/var/wan/1/last-downtime"), "1060\n");
    EXPECT_EQ(get("/var/wan/1/all-sessions-time"), "60\n");
    EXPECT_FALSE(exists("/var/wan/1/pppoe-sessions-time"));
    EXPECT_EQ(wan_getDisconnectReason(1), 4);

    put("/var/wan/1/type", "3");
    put("/var/wan/1/pppoe-sessions-time", "-8");
    put("/var/wan/1/uptime", "2000");
    set_raw_clock_ms(2005000);
    EXPECT_EQ(wan_getAllSessionsTime(1), 65U);
    EXPECT_EQ(wan_getPPPoESessionsTime(1), 5U);
    wan_stopSession(1);
    EXPECT_EQ(get("/var/wan/1/last-uptime"), "2000");
    EXPECT_EQ(get("/var/wan/1/all-sessions-time"), "65\n");
    EXPECT_EQ(get("/var/wan/1/pppoe-sessions-time"), "5\n");

    for (const char *none : {"", "0", "-4"}) {
        put("/var/wan/1/uptime", none);
        EXPECT_EQ(wan_getAllSessionsTime(1), 65U) << none;
    }
    put("/var/wan/1/uptime", "2071");
    EXPECT_EQ(wan_getAllSessionsTime(1), 0xffffffffU) << "a start ahead of the clock wraps";
    EXPECT_EQ(wan_getUptime(1), 0U - 66);
}

TEST(WanSessions, IndexZeroHasTwoFolders) {
    lab::sh("mkdir -p /var/wan/0 /var/wan/4; ln -s 4 /var/wan/default");
    set_raw_clock_ms(50000);
    wan_startSession(0);
    set_raw_clock_ms(80000);
    wan_stopSession(0);
    EXPECT_EQ(get("/var/wan/0/last-downtime"), "80\n");
    EXPECT_EQ(get("/var/wan/4/all-sessions-time"), "30\n");
}

} // namespace
