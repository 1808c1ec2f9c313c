#include <routerkit/sockets.h>

#include <cstring>
#include <ctime>
#include <optional>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <routerkit/clocks.h>

#include "support/lab.h"

using lab::Census;
using lab::FailsWith;

namespace {

int64_t clock_advance = 0;            // milliseconds that the raw monotonic clock is ahead
std::optional<timespec> frozen_clock; // what it shows, if the test stops it

} // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    if (clock == CLOCK_MONOTONIC_RAW && frozen_clock) {
        *now = *frozen_clock;
        return 0;
    }
    int result = static_cast<int>(::syscall(SYS_clock_gettime, clock, now));
    if (clock == CLOCK_MONOTONIC_RAW) {
        int64_t milliseconds = now->tv_nsec / 1000000 + clock_advance;
        now->tv_sec += milliseconds / 1000;
        now->tv_nsec = now->tv_nsec % 1000000 + milliseconds % 1000 * 1000000;
    }
    return result;
}

namespace {

// Two ends of a connection; `there` talks to `here`.
struct Pair {
    int here, there;

    Pair() {
        int ends[2];
        ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
        here = ends[0];
        there = ends[1];
    }
    ~Pair() {
        ::close(here);
        ::close(there);
    }
};

class Server {
  public:
    explicit Server(const char *address, uint16_t port = 0) {
        endpoint_.sin_family = AF_INET;
        endpoint_.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &endpoint_.sin_addr);
        int on = 1;
        ::setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr *>(&endpoint_), sizeof endpoint_), 0);
        socklen_t size = sizeof endpoint_;
        ::getsockname(fd_, reinterpret_cast<sockaddr *>(&endpoint_), &size);
    }
    ~Server() { ::close(fd_); }

    Server &listen() {
        ::listen(fd_, 5);
        return *this;
    }
    int accept() const { return ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC); }
    const sockaddr *endpoint() const { return reinterpret_cast<const sockaddr *>(&endpoint_); }

  private:
    int fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in endpoint_ = {};
};

struct Client {
    int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ~Client() { ::close(fd); }

    int connect(const sockaddr *endpoint, int timeout_ms) const {
        return connect_timeout(fd, endpoint, sizeof(sockaddr_in), timeout_ms);
    }
    int connect(const char *address, int timeout_ms) const {
        sockaddr_in endpoint = {AF_INET, htons(9), {}, {}};
        ::inet_pton(AF_INET, address, &endpoint.sin_addr);
        return connect(reinterpret_cast<const sockaddr *>(&endpoint), timeout_ms);
    }
    bool nonblocking() const { return (::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0; }
};

timeval option_time(int fd, int option) {
    timeval value = {};
    socklen_t size = sizeof value;
    ::getsockopt(fd, SOL_SOCKET, option, &value, &size);
    return value;
}

TEST(PollSockRecv, LooksAtTheDeadlineFirst) {
    Census census;
    Pair pair;
    frozen_clock = timespec{};
    ::clock_gettime(CLOCK_MONOTONIC, &*frozen_clock); // any time but the clock's first reading
    uint32_t now = uptime_getms();
    EXPECT_THAT(poll_sock_recv(pair.here, now), FailsWith(0, ETIME));
    ASSERT_EQ(::write(pair.there, "x", 1), 1);
    EXPECT_EQ(poll_sock_recv(pair.here, now), 1) << "input at the very deadline counts";
    EXPECT_EQ(poll_sock_recv(pair.here, now + 0x7fffffff), 1);
    EXPECT_THAT(poll_sock_recv(pair.here, now - 1), FailsWith(0, ETIME)) << "in spite of input";
    frozen_clock.reset();
}

TEST(PollSockRecv, SignalsNeitherEndNorStretchTheWait) {
    Pair pair;
    lab::SignalStorm storm;
    EXPECT_NEAR(lab::elapsed_ms([&] {
                    EXPECT_THAT(poll_sock_recv(pair.here, uptime_getms() + 300),
                                FailsWith(0, ETIME));
                }),
                315, 20);
    EXPECT_GT(lab::SignalStorm::count(), 30);
}

TEST(PollSockRecv, EndsOnTimeAcrossTheWrapOfTheClock) {
    Pair pair;
    clock_advance = 4294967296 - 150 - uptime_getms(); // 150 ms short of the wrap
    uint32_t deadline = uptime_getms() + 300;
    ASSERT_LE(deadline, 150U);
    lab::SignalStorm storm; // the time left is worked out again on both sides
    EXPECT_NEAR(lab::elapsed_ms(
                    [&] { EXPECT_THAT(poll_sock_recv(pair.here, deadline), FailsWith(0, ETIME)); }),
                315, 20);
    EXPECT_LT(uptime_getms(), 1000U);
    clock_advance = 0;
}

TEST(PollSockRecv, ReportsAFailedPollAndAPeerThatLeft) {
    Pair pair;
    // poll refuses more entries than there may be descriptors
    EXPECT_THAT(
        lab::without_descriptors([&] { return poll_sock_recv(pair.here, uptime_getms() + 1000); }),
        FailsWith(-1, EINVAL));
    ::shutdown(pair.there, SHUT_RDWR);
    EXPECT_EQ(poll_sock_recv(pair.here, uptime_getms() + 1000), 1);
}

TEST(ConnectTimeout, RefusedConnectionEndsTheWait) {
    Server nobody("127.0.0.1"); // bound, but not listening
    Client client;
    EXPECT_LT(lab::elapsed_ms([&] {
                  EXPECT_THAT(client.connect(nobody.endpoint(), 3000), FailsWith(-5, ECONNREFUSED));
              }),
              500);
    EXPECT_TRUE(client.nonblocking());
}

TEST(ConnectTimeout, ImmediateFailureIsReportedAsSuch) {
    Client client;
    EXPECT_THAT(client.connect("203.0.113.1", 1000), FailsWith(-1, ENETUNREACH)) << "no route";
    EXPECT_TRUE(client.nonblocking());
    sockaddr_in endpoint = {};
    EXPECT_THAT(connect_timeout(-1, reinterpret_cast<sockaddr *>(&endpoint), sizeof endpoint, 1000),
                FailsWith(-1, EBADF));
}

TEST(ConnectTimeout, SilentPeerCostsTheWholeTimeoutSignalsOrNot) {
    Server server("127.0.0.1");
    server.listen();
    lab::SignalStorm storm;
    for (int flags : {0, O_NONBLOCK}) { // blocking afterwards in any case
        Client client;
        ::fcntl(client.fd, F_SETFL, flags);
        EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_EQ(client.connect(server.endpoint(), 150), 0); }),
                    165, 20);
        EXPECT_FALSE(client.nonblocking());
    }
    Client hasty;
    EXPECT_LT(lab::elapsed_ms([&] { EXPECT_EQ(hasty.connect(server.endpoint(), -1), 0); }), 50);
}

TEST(ConnectTimeout, TalkingPeerEndsTheWait) {
    Server server("127.0.0.1");
    server.listen();
    std::thread talker([&] {
        int fd = server.accept();
        EXPECT_EQ(::send(fd, "220 hello\r\n", 11, 0), 11);
        ::close(fd);
    });
    Client client;
    EXPECT_LT(lab::elapsed_ms([&] { EXPECT_EQ(client.connect(server.endpoint(), 3000), 0); }),
              1000);
    EXPECT_FALSE(client.nonblocking());
    char greeting[16];
    EXPECT_EQ(::recv(client.fd, greeting, sizeof greeting, 0), 11);
    talker.join();
}

TEST(ConnectTimeout, UnreadablePendingErrorIsMinusFour) {
    Server server("127.0.0.1");
    server.listen();
    Client client;
    std::thread thief([&] { // another file takes the socket's place during the wait
        int fd = server.accept();
        int other = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        ::dup2(other, client.fd);
        ::close(other);
        ::close(fd);
    });
    EXPECT_THAT(client.connect(server.endpoint(), 300), FailsWith(-4, ENOTSOCK));
    thief.join();
}

TEST(ConnectTimeout, ConnectionStillInProgressCountsAsMade) {
    lab::Host cable("far", "eth1", "10.1.0.2/24", "10.1.0.1/24");
    Client client;
    EXPECT_NEAR(lab::elapsed_ms([&] { EXPECT_EQ(client.connect("10.1.0.77", 100), 0); }), 110, 20);
    EXPECT_FALSE(client.nonblocking());
    sockaddr_in peer;
    socklen_t size = sizeof peer;
    EXPECT_THAT(::getpeername(client.fd, reinterpret_cast<sockaddr *>(&peer), &size),
                FailsWith(-1, ENOTCONN));
}

// The machine's names for the time of a test.
class HostsFile {
  public:
    explicit HostsFile(const char *text) {
        lab::put("/tmp/hosts", text);
        lab::put("/tmp/resolv.conf", "nameserver 127.0.0.1\n"); // nobody there
        EXPECT_EQ(::mount("/tmp/hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
        EXPECT_EQ(::mount("/tmp/resolv.conf", "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
    }
    ~HostsFile() {
        ::umount("/etc/hosts");
        ::umount("/etc/resolv.conf");
    }
};

TEST(SocketConnect, ConnectsToPort80OfTheFirstAddress) {
    HostsFile names("127.0.0.7 web.lab\n127.0.0.8 web.lab\n");
    Server web("127.0.0.7", 80);
    web.listen();
    for (const char *host : {"web.lab", "127.0.0.7"}) {
        Census census;
        int fd = -1;
        EXPECT_NEAR(lab::elapsed_ms([&] { fd = socket_connect(host); }), 210, 25) << host;
        ASSERT_GE(fd, 0) << host;
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        ::getpeername(fd, reinterpret_cast<sockaddr *>(&peer), &size);
        EXPECT_EQ(ntohl(peer.sin_addr.s_addr), 0x7f000007U);
        EXPECT_EQ(ntohs(peer.sin_port), 80);
        for (int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
            EXPECT_EQ(option_time(fd, option).tv_sec, 2);
            EXPECT_EQ(option_time(fd, option).tv_usec, 0);
        }
        EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
        ::close(fd);
    }
}

TEST(SocketConnect, FailureLeavesNothingOpen) {
    HostsFile names("127.0.0.7 web.lab\n");
    Census census;
    EXPECT_EQ(socket_connect("nobody.lab"), -1);
    EXPECT_THAT(socket_connect("web.lab"), FailsWith(-1, ECONNREFUSED));
    EXPECT_THAT(socket_connect("203.0.113.1"), FailsWith(-1, ENETUNREACH));
    EXPECT_THAT(lab::without_descriptors([&] { return socket_connect("127.0.0.7"); }),
                FailsWith(-1, EMFILE));
}

TEST(GetInAddr, ReadsEachKindOfAddress) {
    lab::Host cable("far", "fifteen-letters", "10.1.0.2/20", "10.1.0.1/20");
    lab::sh("ip tuntap add mode tun name ppp0 && ip link set ppp0 up && "
            "ip addr add 10.3.0.1 peer 10.3.0.9 dev ppp0");
    Census census;
    struct Case {
        const char *ifname;
        unsigned kind;
        std::string bytes;
    };
    for (const Case &one :
         {Case{"ppp0", 2, {"\x0a\x03\x00\x01", 4}}, Case{"ppp0", 4, "\xff\xff\xff\xff"},
          Case{"ppp0", 1, {"\x0a\x03\x00\x09", 4}}, Case{"ppp0", 0, {"\x0a\x03\x00\x09", 4}},
          Case{"ppp0", 6, {"\x0a\x03\x00\x09", 4}}, Case{"lo", 2, {"\x7f\x00\x00\x01", 4}},
          Case{"lo", 4, {"\xff\x00\x00\x00", 4}}}) {
        std::string out(6, '#');
        EXPECT_EQ(getInAddr(one.ifname, one.kind, out.data()), 1);
        EXPECT_EQ(out, one.bytes + "##") << one.ifname << " kind " << one.kind;
    }
    struct {
        sockaddr address;
        char canary = '#';
    } hardware;
    ASSERT_EQ(getInAddr("fifteen-letters", 8, &hardware), 1);
    EXPECT_EQ(hardware.address.sa_family, ARPHRD_ETHER);
    char text[18];
    auto mac = reinterpret_cast<const uint8_t *>(&hardware) + 2;
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    EXPECT_EQ(std::string(text) + "\n", lab::get("/sys/class/net/fifteen-letters/address"));
    EXPECT_EQ(hardware.canary, '#');
}

TEST(GetInAddr, FailureLeavesTheOutputAlone) {
    lab::Host cable("far", "fifteen-letters", "10.1.0.2/24", "10.1.0.1/24");
    lab::sh("ip addr flush dev fifteen-letters");
    Census census;
    char out[17] = "################";
    EXPECT_THAT(getInAddr("fifteen-letters", 2, out), FailsWith(0, EADDRNOTAVAIL));
    EXPECT_THAT(getInAddr("nosuch0", 8, out), FailsWith(0, ENODEV));
    EXPECT_THAT(getInAddr("", 8, out), FailsWith(0, ENODEV));
    EXPECT_THAT(getInAddr("fifteen-letters+", 8, out), FailsWith(0, ENODEV));
    EXPECT_THAT(lab::without_descriptors([&] { return getInAddr("lo", 2, out); }),
                FailsWith(0, EMFILE));
    EXPECT_STREQ(out, "################");
}

TEST(WanSockBind, UsesTheConnectionsInterface) {
    lab::Host cable("far", "eth1", "10.1.0.2/24", "10.1.0.1/24");
    Client client;
    Census census;
    EXPECT_THAT(wan_sockBind(1, client.fd), FailsWith(-1, ENETDOWN));
    lab::put("/var/wan/1/con_iface", "nosuch0");
    EXPECT_THAT(wan_sockBind(1, client.fd), FailsWith(-1, ENODEV));
    lab::put("/var/wan/1/con_iface", "eth1");
    EXPECT_EQ(wan_sockBind(1, client.fd), 0);
    char name[IFNAMSIZ] = {};
    socklen_t size = sizeof name;
    EXPECT_EQ(::getsockopt(client.fd, SOL_SOCKET, SO_BINDTODEVICE, name, &size), 0);
    EXPECT_STREQ(name, "eth1");
    EXPECT_THAT(wan_sockBind(1, -1), FailsWith(-1, EBADF));
    EXPECT_THAT(wan_sockBind(-1, client.fd), FailsWith(-1, ENETDOWN));
}

} // namespace
