#include <routerkit/clocks.h>

#include "support/deadline.h"
#include "support/fake_clock.h"
#include "support/lab.h"

using lab::set_raw_clock_ms;

namespace {

constexpr uint64_t kWrap = 1ULL << 32;

TEST(Clocks, MillisecondsAreFormedIn32Bits) {
    set_raw_clock_ms(4000000123ULL); // past 2^31 ms
    EXPECT_EQ(uptime_getmsl(), 4000000123LL - 4294967296LL);
    EXPECT_EQ(get_monotonic_sec(), 4000000);
    set_raw_clock_ms(5 * kWrap + 7);
    EXPECT_EQ(uptime_getmsl(), 7);
}

TEST(Clocks, CountFromTheFirstCallAcrossTheWrap) {
    const uint64_t start = kWrap - 1500;
    for (uint64_t passed : {uint64_t{0}, uint64_t{1400}, uint64_t{2000}, kWrap - 1, kWrap}) {
        set_raw_clock_ms(start + passed);
        EXPECT_EQ(uptime_getms(), static_cast<uint32_t>(passed));
    }
    for (const auto &[passed, stamp] :
         {std::pair{7042, "007.042"}, {123456, "123.456"}, {1234567, "1234.567"}, {0, "000.000"}}) {
        set_raw_clock_ms(start + static_cast<uint64_t>(passed));
        EXPECT_STREQ(time_getLogStamp(), stamp);
    }
}

TEST(Clocks, DeadlineEndsOnTimeAcrossTheWrap) {
    set_raw_clock_ms(0x7fffffff);
    uptime_getms();
    set_raw_clock_ms(0x7fffffff + kWrap - 256);
    rk::Deadline deadline = rk::Deadline::in(1000);
    EXPECT_EQ(deadline.time(), 744U);
    EXPECT_EQ(deadline.left(), 1000);
    set_raw_clock_ms(0x7fffffff + kWrap - 256 + 1001);
    EXPECT_EQ(deadline.left(), -1);
    EXPECT_EQ(rk::Deadline::in(0xffffffff).left(), 0x7fffffff) << "as far ahead as can be told";
}

TEST(Clocks, SystemUptimeIsTheKernels) {
    EXPECT_NEAR(sys_getUpTime(), std::stod(lab::get("/proc/uptime")), 2);
}

TEST(Sleep, SignalsDoNotShortenIt) {
    lab::SignalStorm storm(20);
    EXPECT_EQ(lab::takes_ms(1200, [] { return safe_msleep(1200); }), 0);
    EXPECT_GT(lab::SignalStorm::count(), 30);
    EXPECT_EQ(lab::takes_ms(0, [] { return safe_msleep(0); }), 0);
}

} // namespace
