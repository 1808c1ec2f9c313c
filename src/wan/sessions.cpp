#include <routerkit/wan.h>

#include <cstdio>

#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/files.h>

#include "wan/attributes.h"
#include "wan/wan_file.h"

namespace {

using rk::SessionFile;
using rk::WanFile;

constexpr const char *kStart = "uptime"; // the session's only mark, with the second it started at
constexpr const char *kAllSessions = "all-sessions-time";
constexpr const char *kPppoeSessions = "pppoe-sessions-time";

unsigned seconds_now() {
    return static_cast<unsigned>(get_monotonic_sec());
}

// Unsigned, as all sums of what files hold: a word of 32 bits may wrap, but not overflow.
void add_to_total(unsigned index, const char *name, unsigned long seconds) {
    WanFile total(index, name);
    unsigned long sum = static_cast<unsigned long>(total.count()) + seconds;
    writeNumToFile(total.path(), static_cast<long>(sum));
}

// A stored total with the running session on top if that counts, modulo 2^32.
unsigned total_time(unsigned index, const char *name, bool only_pppoe) {
    long stored = rk::attribute_number(index, name);
    unsigned total = stored < 0 ? 0 : static_cast<unsigned>(stored);
    if (only_pppoe && wan_getType(index) != rk::kTypePppoe) {
        return total;
    }
    long start = SessionFile(index, kStart).number();
    return start < 1 ? total : total - static_cast<unsigned>(start) + seconds_now();
}

} // namespace

int wan_startSession(unsigned index) {
    SessionFile uptime(index, kStart);
    if (!uptime.exists()) {
        writeNumToFile(uptime.path(), get_monotonic_sec());
    }
    return 0;
}

int wan_stopSession(unsigned index) {
    SessionFile uptime(index, kStart);
    if (!uptime.exists()) {
        return 0;
    }
    long now = get_monotonic_sec();
    unsigned long length =
        static_cast<unsigned long>(now) - static_cast<unsigned long>(uptime.number());
    SessionFile last(index, "last-uptime");
    ::unlink(last.path());
    std::rename(uptime.path(), last.path());
    writeNumToFile(SessionFile(index, "last-downtime").path(), now);
    add_to_total(index, kAllSessions, length);
    if (wan_getType(index) == rk::kTypePppoe) {
        add_to_total(index, kPppoeSessions, length);
    }
    return 0;
}

int wan_getDisconnectReason(unsigned index) {
    return SessionFile(index, "last-downtime").exists() ? 4 : 0;
}

unsigned wan_getUptime(unsigned index) {
    return seconds_now() - static_cast<unsigned>(SessionFile(index, kStart).number());
}

unsigned wan_getAllSessionsTime(unsigned index) {
    return total_time(index, kAllSessions, false);
}

unsigned wan_getPPPoESessionsTime(unsigned index) {
    return total_time(index, kPppoeSessions, true);
}
