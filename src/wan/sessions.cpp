#include <routerkit/wan.h>

#include <cstdio>

#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/files.h>

#include "wan/wan_file.h"

namespace {

using rk::WanFile;

constexpr const char *kAllSessions = "all-sessions-time";
constexpr const char *kPppoeSessions = "pppoe-sessions-time";

// The running session's start second: the file is the session's only mark.
WanFile uptime_file(unsigned index) {
    return WanFile::of_session(index, "uptime");
}

// Unsigned, as all sums of what files hold: a word of 32 bits may wrap, but not overflow.
void add_to_total(const WanFile &total, unsigned long seconds) {
    unsigned long sum = static_cast<unsigned long>(total.count()) + seconds;
    writeNumToFile(total.path(), static_cast<long>(sum));
}

// A stored total with the running session on top, modulo 2^32.
unsigned with_running_session(unsigned index, long total) {
    long start = uptime_file(index).number();
    if (start < 1) {
        return static_cast<unsigned>(total);
    }
    return static_cast<unsigned>(total) - static_cast<unsigned>(start) +
           static_cast<unsigned>(get_monotonic_sec());
}

} // namespace

int wan_startSession(unsigned index) {
    WanFile uptime = uptime_file(index);
    if (!uptime.exists()) {
        writeNumToFile(uptime.path(), get_monotonic_sec());
    }
    return 0;
}

int wan_stopSession(unsigned index) {
    WanFile uptime = uptime_file(index);
    if (!uptime.exists()) {
        return 0;
    }
    long now = get_monotonic_sec();
    unsigned long length =
        static_cast<unsigned long>(now) - static_cast<unsigned long>(uptime.number());
    WanFile last = WanFile::of_session(index, "last-uptime");
    ::unlink(last.path());
    std::rename(uptime.path(), last.path());
    writeNumToFile(WanFile::of_session(index, "last-downtime").path(), now);
    add_to_total(WanFile(index, kAllSessions), length);
    if (wan_getType(index) == rk::kTypePppoe) {
        add_to_total(WanFile(index, kPppoeSessions), length);
    }
    return 0;
}

int wan_getDisconnectReason(unsigned index) {
    return WanFile::of_session(index, "last-downtime").exists() ? 4 : 0;
}

unsigned wan_getUptime(unsigned index) {
    return static_cast<unsigned>(get_monotonic_sec()) -
           static_cast<unsigned>(uptime_file(index).number());
}

unsigned wan_getAllSessionsTime(unsigned index) {
    return with_running_session(index, WanFile(index, kAllSessions).count());
}

unsigned wan_getPPPoESessionsTime(unsigned index) {
    long total = WanFile(index, kPppoeSessions).count();
    return wan_getType(index) == rk::kTypePppoe ? with_running_session(index, total)
                                                : static_cast<unsigned>(total);
}
