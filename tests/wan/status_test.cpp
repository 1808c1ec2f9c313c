#include <routerkit/wan.h>

#include <cstdarg>
#include <cstring>
#include <functional>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/files.h>

#include "support/lab.h"

using lab::exists;
using lab::FailsWith;
using lab::get;
using lab::put;

namespace {

std::function<int(ifreq &)> switch_driver; // answers SIOCDEVPRIVATE
int64_t clock_second = -1;                 // what the raw monotonic clock shows, if set

} // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (request == SIOCDEVPRIVATE && switch_driver) {
        return switch_driver(*static_cast<ifreq *>(argument));
    }
    return static_cast<int>(::syscall(SYS_ioctl, fd, request, argument));
}

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    if (clock == CLOCK_MONOTONIC_RAW && clock_second >= 0) {
        *now = {static_cast<time_t>(clock_second), 0};
        return 0;
    }
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
}

namespace {

TEST(WanStatus, TextsOfEveryCode) {
    struct Case {
        int code;
        const char *stored;
        const char *shown;
    };
    constexpr const char *kUnknown = "Неизвестная ошибка";
    const Case cases[] = {
        {0, "00 disabled", "WAN отсутствует"},
        {1, "01 disconnected", "Соединение отсутствует"},
        {10, "10 connecting", kUnknown},
        {11, "11 in idle", kUnknown},
        {12, "12 requested ip", kUnknown},
        {20, "20 connected", "Подключено"},
        {90, "90 no auth", "Ошибка авторизации"},
        {91, "91 no server", "Сервер недоступен"},
        {92, "92 no PADO", kUnknown},
        {93, "93 no PADS", kUnknown},
        {94, "94 no AC", kUnknown},
        {95, "95 no IP", kUnknown},
        {99, "99 error", "Ошибка подключения"},
        {13, "99 error", "Ошибка подключения"},
        {-1, "99 error", "Ошибка подключения"},
    };
    EXPECT_THAT(wan_updateIfStatus(2, 20), FailsWith(-1, ENOENT));
    EXPECT_EQ(wan_getStatus(2), -1);
    EXPECT_STREQ(wan_getTextStatus(2), kUnknown);
    lab::sh("mkdir -p /var/wan/2");
    for (const Case &one : cases) {
        EXPECT_EQ(wan_updateIfStatus(2, one.code), static_cast<int>(std::strlen(one.stored)));
        EXPECT_EQ(get("/var/wan/2/status"), one.stored);
        EXPECT_EQ(wan_getStatus(2), std::atoi(one.stored));
        EXPECT_STREQ(wan_getTextStatus(2), one.shown) << one.code;
    }
    put("/var/wan/2/status", "13 strange");
    EXPECT_STREQ(wan_getTextStatus(2), kUnknown);
    put("/var/wan/2/status", "");
    EXPECT_EQ(wan_getStatus(2), 0);
    EXPECT_EQ(WAN_STATUS_T, 0);
}

TEST(WanFlags, FollowTheirFiles) {
    lab::Census census;
    lab::sh("mkdir -p /var/wan/1");
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
    EXPECT_EQ(wan_hasWiredInetFlag(), 0);
    EXPECT_EQ(wan_setWiredInetFlag(1), 0);
    EXPECT_TRUE(exists("/var/wan/wired-inet-up"));
    EXPECT_EQ(wan_hasWiredInetFlag(), 1);
    EXPECT_EQ(wan_setLinkFlag(0), 0);
    EXPECT_EQ(wan_hasWiredInetFlag(), 1);

    wan_link(1, "modem");
    EXPECT_EQ(wan_setModemFlag(0), 0);
    EXPECT_FALSE(exists("/var/wan/modem"));
    EXPECT_FALSE(exists("/var/wan/modem-up"));
    wan_link(1, "modem");
    EXPECT_THAT(wan_setModemFlag(0), FailsWith(-1, ENOENT));
    EXPECT_FALSE(exists("/var/wan/modem")) << "the link goes even when the flag was not set";

    EXPECT_EQ(wan_getModemStatus(), 0);
    put("/tmp/modem-iface", "");
    EXPECT_EQ(wan_getModemStatus(), 1);
}

TEST(WanLink, AsksTheSwitchDriver) {
    struct Seen {
        std::string ifname;
        unsigned long command, first, second;
    } seen;
    int32_t answer = 0;
    int result = 0;
    switch_driver = [&](ifreq &request) {
        auto *words = reinterpret_cast<unsigned long *>(request.ifr_data);
        seen = {request.ifr_name, words[0], words[1], words[2]};
        if (result == 0) {
            *reinterpret_cast<int32_t *>(words[3]) = answer;
        }
        errno = EIO;
        return result;
    };
    EXPECT_EQ(wan_getLinkStatus(), 1);
    EXPECT_EQ(seen.ifname, "eth1");
    EXPECT_EQ(seen.command, 2000U);
    EXPECT_EQ(seen.first + seen.second, 0U);
    answer = 100;
    EXPECT_EQ(wan_getLinkStatus(), 1);
    answer = -1;
    EXPECT_EQ(wan_getLinkStatus(), 0);
    answer = 1;
    result = -1;
    EXPECT_EQ(wan_getLinkStatus(), 0) << "the query failed";
    switch_driver = nullptr;
    EXPECT_EQ(wan_getLinkStatus(), 0) << "no such driver";
}

TEST(WanSessions, AddUpToTheirTotals) {
    lab::Census census;
    lab::sh("mkdir -p /var/wan/1");
    put("/var/wan/1/type", "1");
    EXPECT_EQ(wan_stopSession(1), 0);
    EXPECT_FALSE(exists("/var/wan/1/last-downtime")) << "no session, nothing to stop";
    EXPECT_EQ(wan_getDisconnectReason(1), 0);

    clock_second = 1000;
    EXPECT_EQ(wan_getUptime(1), 1001U) << "a missing file reads as -1";
    EXPECT_EQ(wan_startSession(1), 0);
    clock_second = 1040;
    wan_startSession(1);
    EXPECT_EQ(get("/var/wan/1/uptime"), "1000\n") << "a running session keeps its start";
    EXPECT_EQ(wan_getUptime(1), 40U);
    EXPECT_EQ(wan_getAllSessionsTime(1), 40U);
    EXPECT_EQ(wan_getPPPoESessionsTime(1), 0U);

    clock_second = 1060;
    EXPECT_EQ(wan_stopSession(1), 0);
    EXPECT_FALSE(exists("/var/wan/1/uptime"));
    EXPECT_EQ(get("/var/wan/1/last-uptime"), "1000\n");
    EXPECT_EQ(get("/var/wan/1/last-downtime"), "1060\n");
    EXPECT_EQ(get("/var/wan/1/all-sessions-time"), "60\n");
    EXPECT_FALSE(exists("/var/wan/1/pppoe-sessions-time"));
    EXPECT_EQ(wan_getDisconnectReason(1), 4);

    put("/var/wan/1/type", "3");
    put("/var/wan/1/pppoe-sessions-time", "-8");
    clock_second = 2000;
    wan_startSession(1);
    clock_second = 2005;
    EXPECT_EQ(wan_getAllSessionsTime(1), 65U);
    EXPECT_EQ(wan_getPPPoESessionsTime(1), 5U);
    wan_stopSession(1);
    EXPECT_EQ(get("/var/wan/1/last-uptime"), "2000\n");
    EXPECT_EQ(get("/var/wan/1/all-sessions-time"), "65\n");
    EXPECT_EQ(get("/var/wan/1/pppoe-sessions-time"), "5\n");
}

TEST(WanSessions, TotalsAreUnsigned32BitNumbers) {
    lab::sh("mkdir -p /var/wan/1");
    put("/var/wan/1/all-sessions-time", "10");
    clock_second = 100;
    for (const char *none : {"", "0", "-4"}) {
        put("/var/wan/1/uptime", none);
        EXPECT_EQ(wan_getAllSessionsTime(1), 10U) << none;
    }
    put("/var/wan/1/uptime", "111");
    EXPECT_EQ(wan_getAllSessionsTime(1), 0xffffffffU) << "a start ahead of the clock wraps";
    EXPECT_EQ(wan_getUptime(1), 0xfffffff5U);
}

TEST(WanSessions, IndexZeroHasTwoFolders) {
    lab::sh("mkdir -p /var/wan/0 /var/wan/4; ln -s 4 /var/wan/default");
    clock_second = 50;
    wan_startSession(0);
    clock_second = 80;
    wan_stopSession(0);
    EXPECT_EQ(get("/var/wan/0/last-downtime"), "80\n");
    EXPECT_EQ(get("/var/wan/4/all-sessions-time"), "30\n");
}

} // namespace
