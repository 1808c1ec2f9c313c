// The reachability test against a ping program, and against the system calls that it cannot do
// without.
#include <routerkit/ping.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/pairs.h"
#include "support/sandbox.h"

namespace {

constexpr uint32_t kFar = 0x0a010001; // 10.1.0.1

// Another host at the end of a cable, whose kernel answers.
void plug_in_a_host() {
    const char *commands = "ip netns add far && "
                           "ip link add eth1 type veth peer name up0 netns far && "
                           "ip addr add 10.1.0.2/24 dev eth1 && ip link set eth1 up && "
                           "ip -n far addr add 10.1.0.1/24 dev up0 && ip -n far link set up0 up";
    if (std::system(commands) != 0) {
        std::fprintf(stderr, "net_bench: no cable to another host\n");
        std::exit(1);
    }
}

bool ping_program() {
    char words[][9] = {"busybox", "ping", "-c", "1", "-W", "1", "10.1.0.1"};
    char *arguments[] = {words[0], words[1], words[2], words[3],
                         words[4], words[5], words[6], nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    int status = -1;
    if (::posix_spawnp(&pid, arguments[0], &actions, nullptr, arguments, environ) == 0) {
        ::waitpid(pid, &status, 0);
    }
    ::posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}

// No time-out kept across signals, no interface, and any message will do. The socket is its own
// too: one left open would receive the answers to everybody else's requests.
bool bare_exchange() {
    unsigned char message[1024] = {8, 0, 0xf7, 0xff}; // an echo request, all else zero
    sockaddr_in far = {AF_INET, 0, {htonl(kFar)}, {}};
    int fd = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
    pollfd entry = {fd, POLLIN, 0};
    bool answered =
        ::sendto(fd, message, 64, 0, reinterpret_cast<sockaddr *>(&far), sizeof far) == 64 &&
        ::poll(&entry, 1, 1000) == 1 &&
        ::recvfrom(fd, message, sizeof message, 0, nullptr, nullptr) == 84 && message[20] == 0;
    ::close(fd);
    return answered;
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    plug_in_a_host();
    static bool answered;
    auto answer = [] { return std::string(answered ? "answered" : "no answer"); };
    Row row("ping_test", 1, Clock::kWall);
    row.ours([](size_t) { answered = ping_test("eth1", &kFar, 1, 1000, 0) == 1; }, answer);
    row.peer(
        "busybox ping", 0.05, [](size_t) { answered = ping_program(); }, answer);
    row.peer(
        "sendto + poll + recvfrom", 1.3, [](size_t) { answered = bare_exchange(); }, answer);
}
