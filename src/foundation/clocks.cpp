#include <routerkit/clocks.h>

#include <ctime>

#include <sys/sysinfo.h>

#include <routerkit/strings.h>

#include "support/errno.h"

namespace {

constinit int64_t first_call = 0; // uptime_getmsl of the first uptime_getms, 0 before it

timespec monotonic() {
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return now;
}

} // namespace

int get_monotonic_sec() {
    return static_cast<int>(monotonic().tv_sec);
}

int64_t uptime_getmsl() {
    timespec now = monotonic();
    auto milliseconds = static_cast<uint32_t>(now.tv_nsec / 1000000);
    return static_cast<int32_t>(static_cast<uint32_t>(now.tv_sec) * 1000U + milliseconds);
}

uint32_t uptime_getms() {
    int64_t now = uptime_getmsl();
    if (first_call == 0) {
        first_call = now;
    }
    return static_cast<uint32_t>(now) - static_cast<uint32_t>(first_call);
}

char *time_getLogStamp() {
    unsigned long now = uptime_getms();
    return strf("%03lu.%03lu", now / 1000, now % 1000);
}

int sys_getUpTime() {
    struct sysinfo info = {};
    ::sysinfo(&info);
    return static_cast<int>(info.uptime);
}

int safe_msleep(unsigned milliseconds) {
    timespec rest = {};
    rest.tv_sec = static_cast<time_t>(milliseconds / 1000);
    rest.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000;
    return rk::retry_eintr([&] { return ::nanosleep(&rest, &rest); });
}
