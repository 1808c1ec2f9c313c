// A raw monotonic clock that the test can set. Defines clock_gettime: for one source a program.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>

#include <sys/syscall.h>
#include <unistd.h>

namespace lab {

inline std::optional<timespec> raw_clock; // what it shows; the kernel's time otherwise

inline void set_raw_clock_ms(uint64_t milliseconds) {
    raw_clock = timespec{static_cast<time_t>(milliseconds / 1000),
                         static_cast<long>(milliseconds % 1000) * 1000000 + 999999};
}

} // namespace lab

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    if (clock == CLOCK_MONOTONIC_RAW && lab::raw_clock) {
        *now = *lab::raw_clock;
        return 0;
    }
    return static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
}
