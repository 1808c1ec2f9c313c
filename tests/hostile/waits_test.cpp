// No wait ends early or never: while the process is stopped and continued, and whatever becomes of
// the wall clock.
#include <cerrno>
#include <csignal>
#include <ctime>

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/dns.h>
#include <routerkit/files.h>
#include <routerkit/ping.h>
#include <routerkit/processes.h>
#include <routerkit/sockets.h>

#include "support/lab.h"

namespace {

time_t wall_offset = 0; // how far the wall clock is off; it moves with every look at it

} // namespace

// The wall clock jumps a day forth, then two back, and so on.
extern "C" int gettimeofday(timeval *now, void * /*zone*/) noexcept {
    wall_offset = wall_offset > 0 ? -86400 : 86400;
    *now = {wall_offset, 0};
    return 0;
}

extern "C" time_t time(time_t *now) noexcept {
    timeval value;
    gettimeofday(&value, nullptr);
    if (now != nullptr) {
        *now = value.tv_sec;
    }
    return value.tv_sec;
}

namespace {

constexpr unsigned kWait = 400; // ms

int silent_socket() {
    int ends[2];
    return ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0 ? ends[0] : -1;
}

int poll_silence() {
    return poll_sock_recv(silent_socket(), uptime_getms() + kWait) == 0 && errno == ETIME;
}

int ping_nobody() {
    const uint32_t nobody = 0x0a010063;
    lab::sh("ip link show wan0 2>/dev/null || (ip link add wan0 type veth peer name far0;"
            " ip link set far0 up; ip addr add 10.1.0.1/24 dev wan0; ip link set wan0 up)");
    return ping_test(nullptr, &nobody, 1, kWait, 0) == 0;
}

int ask_nobody() {
    uint32_t address;
    int server = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in here = {};
    here.sin_family = AF_INET;
    here.sin_port = htons(53);
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(server, reinterpret_cast<sockaddr *>(&here), sizeof here);
    lab::put("/tmp/servers", "nameserver 127.0.0.1\n");
    return dns_resolve_domain(nullptr, "/tmp/servers", "www.example.net", &address, 1, kWait) ==
               -1 &&
           errno == ETIME;
}

int outwait_a_zombie() {
    pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    return terminate(child, kWait / 20, kWait / 20) == -1 && errno == ETIME;
}

struct Wait {
    const char *name;
    int (*call)(); // 1 when it ended as it should
};

constexpr Wait kWaits[] = {{"poll_sock_recv", poll_silence},
                           {"ping_test", ping_nobody},
                           {"dns_resolve_domain", ask_nobody},
                           {"terminate", outwait_a_zombie}};

// Stops a process for a time in the middle of its wait.
void stop_and_continue(pid_t process, int milliseconds) {
    ::usleep(kWait * 1000 / 4);
    ::kill(process, SIGSTOP);
    ::usleep(static_cast<useconds_t>(milliseconds) * 1000);
    ::kill(process, SIGCONT);
}

TEST(Waits, AreNeitherShortenedNorLengthenedByAStop) {
    for (const Wait &wait : kWaits) {
        for (int stop : {100, 600}) { // over before the deadline, and after it
            SCOPED_TRACE(wait.name);
            int status = -1;
            int64_t spent = lab::elapsed_ms([&] {
                pid_t child = ::fork();
                if (child == 0) {
                    ::_exit(wait.call() == 1 ? 0 : 1);
                }
                stop_and_continue(child, stop);
                ::waitpid(child, &status, 0);
            });
            EXPECT_EQ(status, 0) << "a result of its own";
            EXPECT_GE(spent, kWait - 30);
            EXPECT_LE(spent, std::max<int64_t>(kWait, stop + kWait / 4) + 1000);
        }
    }
}

TEST(Waits, KnowNothingOfTheWallClock) {
    lab::SignalStorm storm;
    for (const Wait &wait : kWaits) {
        SCOPED_TRACE(wait.name);
        int right = 0;
        EXPECT_GE(lab::elapsed_ms([&] { right = wait.call(); }), kWait - 30);
        EXPECT_EQ(right, 1);
    }
}

} // namespace
