#include <routerkit/clocks.h>

#include <cstdlib>
#include <ctime>
#include <optional>

#include <sys/syscall.h>
#include <unistd.h>

#include "support/deadline.h"
#include "support/lab.h"

namespace {

std::optional<timespec> set_clock; // what the raw monotonic clock shows, if the test says so

void set_clock_ms(uint64_t milliseconds) {
    set_clock = timespec{static_cast<time_t>(milliseconds / 1000),
                         static_cast<long>(milliseconds % 1000) * 1000000 + 999999};
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    if (clock == CLOCK_MONOTONIC_RAW && set_clock) {
        *now = *set_clock;
        return 0;
    }
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
}

namespace {

TEST(Clocks, MillisecondsAreFormedIn32Bits) {
    set_clock_ms(4000000123ULL); // past 2^31 ms
    EXPECT_EQ(uptime_getmsl(), 4000000123LL - 4294967296LL);
    EXPECT_EQ(get_monotonic_sec(), 4000000);
    set_clock_ms(5 * 4294967296ULL + 7);
    EXPECT_EQ(uptime_getmsl(), 7);
}

TEST(Clocks, CountFromTheFirstCallAcrossTheWrap) {
    uint64_t start = 4294967296ULL - 1500;
    set_clock_ms(start);
    EXPECT_EQ(uptime_getms(), 0U);
    set_clock_ms(start + 1400);
    EXPECT_EQ(uptime_getms(), 1400U);
    set_clock_ms(start + 2000);
    EXPECT_EQ(uptime_getms(), 2000U);
    set_clock_ms(start + 4294967295ULL);
    EXPECT_EQ(uptime_getms(), 4294967295U);
    set_clock_ms(start + 4294967296ULL);
    EXPECT_EQ(uptime_getms(), 0U);
}

TEST(Clocks, LogStampIsAtLeastThreeDigitsWide) {
    struct Case {
        uint64_t milliseconds;
        const char *stamp;
    };
    set_clock_ms(1000);
    uptime_getms();
    for (const Case &one : {Case{7042, "007.042"}, Case{123456, "123.456"},
                            Case{1234567, "1234.567"}, Case{0, "000.000"}}) {
        set_clock_ms(1000 + one.milliseconds);
        EXPECT_STREQ(time_getLogStamp(), one.stamp);
    }
}

TEST(Clocks, DeadlineEndsOnTimeAcrossTheWrap) {
    set_clock_ms(0x7fffffff);
    uptime_getms();
    set_clock_ms(0x7fffffffULL + 0xffffff00ULL); // 256 ms before uptime_getms wraps
    rk::Deadline deadline = rk::Deadline::in(1000);
    EXPECT_EQ(deadline.time(), 744U);
    EXPECT_EQ(deadline.left(), 1000);
    set_clock_ms(0x7fffffffULL + 0xffffff00ULL + 1001);
    EXPECT_EQ(deadline.left(), -1);
    EXPECT_EQ(rk::Deadline::in(0xffffffff).left(), 0x7fffffff) << "as far ahead as can be told";
}

TEST(Clocks, SystemUptimeIsTheKernels) {
    double kernel = std::atof(lab::get("/proc/uptime").c_str());
    EXPECT_NEAR(sys_getUpTime(), kernel, 2);
}

TEST(Sleep, SignalsDoNotShortenIt) {
    lab::SignalStorm storm(20);
    EXPECT_NEAR(lab::elapsed_ms([] { EXPECT_EQ(safe_msleep(1200), 0); }), 1225, 25);
    EXPECT_GT(lab::SignalStorm::count(), 30);
    EXPECT_LT(lab::elapsed_ms([] { EXPECT_EQ(safe_msleep(0), 0); }), 20);
}

} // namespace
