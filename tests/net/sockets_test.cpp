#include <routerkit/sockets.h>

#include <thread>

#include <fcntl.h>
#include <net/if_arp.h>
#include <sys/mount.h>

#include <routerkit/clocks.h>
#include <routerkit/conversions.h>

#include "support/fake_clock.h"
#include "support/lab.h"
#include "support/socket.h"

using lab::Census;
using lab::elapsed_ms;
using lab::FailsWith;
using lab::takes_ms;
using lab::without_descriptors;

namespace {

// A TCP socket on a loopback address and a port of its own; refuses until it listens.
class Server : public rk::UniqueFd {
  public:
    explicit Server(uint32_t address = INADDR_LOOPBACK, uint16_t port = 0)
        : UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
          endpoint_(rk::inet_endpoint(address, port)) {
        socklen_t size = sizeof endpoint_;
        EXPECT_EQ(::bind(get(), rk::as_sockaddr(endpoint_), size), 0);
        ::getsockname(get(), reinterpret_cast<sockaddr *>(&endpoint_), &size);
    }

    Server &listen() {
        ::listen(get(), 5);
        return *this;
    }
    int accept() const { return ::accept4(get(), nullptr, nullptr, SOCK_CLOEXEC); }
    const sockaddr_in &endpoint() const { return endpoint_; }

  private:
    sockaddr_in endpoint_;
};

struct Client : rk::UniqueFd {
    Client() : UniqueFd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}

    int connect(const sockaddr_in &endpoint, int timeout_ms) const {
        return connect_timeout(get(), rk::as_sockaddr(endpoint), sizeof endpoint, timeout_ms);
    }
    bool nonblocking() const { return (::fcntl(get(), F_GETFL) & O_NONBLOCK) != 0; }
};

class PollSockRecv : public testing::Test {
  protected:
    PollSockRecv() { ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends_); }
    ~PollSockRecv() override {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }

    // Nothing arrives: signals neither end nor stretch the wait.
    void expect_silence_for(uint32_t milliseconds) {
        lab::SignalStorm storm;
        uint32_t deadline = uptime_getms() + milliseconds;
        EXPECT_THAT(takes_ms(milliseconds, [&] { return poll_sock_recv(ends_[0], deadline); }),
                    FailsWith(0, ETIME));
    }

    int ends_[2];
};

TEST_F(PollSockRecv, LooksAtTheDeadlineFirst) {
    lab::set_raw_clock_ms(1000);
    uptime_getms();
    lab::set_raw_clock_ms(5000);
    EXPECT_THAT(poll_sock_recv(ends_[0], 4000), FailsWith(0, ETIME));
    ASSERT_EQ(::write(ends_[1], "x", 1), 1);
    EXPECT_EQ(poll_sock_recv(ends_[0], 4000), 1) << "input at the very deadline counts";
    EXPECT_EQ(poll_sock_recv(ends_[0], 4000U + 0x7fffffff), 1);
    EXPECT_THAT(poll_sock_recv(ends_[0], 3999), FailsWith(0, ETIME)) << "in spite of input";
    lab::raw_clock.reset();
}

TEST_F(PollSockRecv, EndsOnTime) {
    expect_silence_for(300);
}

TEST_F(PollSockRecv, EndsOnTimeAcrossTheWrapOfTheClock) {
    // The first reading is the base: 150 ms ahead, it makes the clock stand short of its wrap.
    lab::set_raw_clock_ms(static_cast<uint64_t>(uptime_getmsl() + 150) & 0xffffffff);
    uptime_getms();
    lab::raw_clock.reset();
    ASSERT_GT(uptime_getms(), 0U - 151);
    expect_silence_for(300);
}

TEST_F(PollSockRecv, ReportsAFailedPollAndAPeerThatLeft) {
    const int fd = ends_[0];
    // poll refuses more entries than there may be descriptors
    EXPECT_THAT(without_descriptors([=] { return poll_sock_recv(fd, uptime_getms() + 1000); }),
                FailsWith(-1, EINVAL));
    ::shutdown(ends_[1], SHUT_RDWR);
    EXPECT_EQ(poll_sock_recv(fd, uptime_getms() + 1000), 1);
}

TEST(ConnectTimeout, FailuresEndTheWait) {
    Server nobody;
    Client client;
    EXPECT_LT(elapsed_ms([&] {
                  EXPECT_THAT(client.connect(nobody.endpoint(), 3000), FailsWith(-5, ECONNREFUSED));
              }),
              500);
    EXPECT_TRUE(client.nonblocking());
    Client other;
    const sockaddr_in unrouted = rk::inet_endpoint(0xcb007101, 9);
    EXPECT_THAT(other.connect(unrouted, 1000), FailsWith(-1, ENETUNREACH));
    EXPECT_TRUE(other.nonblocking());
    EXPECT_THAT(connect_timeout(-1, rk::as_sockaddr(unrouted), sizeof unrouted, 1000),
                FailsWith(-1, EBADF));
}

TEST(ConnectTimeout, SilentPeerCostsTheWholeTimeoutSignalsOrNot) {
    Server server;
    server.listen();
    lab::SignalStorm storm;
    for (int flags : {0, O_NONBLOCK}) { // blocking afterwards in any case
        Client client;
        ::fcntl(client.get(), F_SETFL, flags);
        EXPECT_EQ(takes_ms(150, [&] { return client.connect(server.endpoint(), 150); }), 0);
        EXPECT_FALSE(client.nonblocking());
    }
}

TEST(ConnectTimeout, TalkingPeerEndsTheWaitAndAnUnreadableErrorFails) {
    Server server;
    server.listen();
    Client client;
    std::thread talker([&] {
        rk::UniqueFd fd(server.accept());
        EXPECT_EQ(::send(fd.get(), "220 hello\r\n", 11, 0), 11);
    });
    EXPECT_LT(elapsed_ms([&] { EXPECT_EQ(client.connect(server.endpoint(), 3000), 0); }), 1000);
    EXPECT_FALSE(client.nonblocking());
    talker.join();
    Client robbed;
    std::thread thief([&] { // another file takes the socket's place during the wait
        rk::UniqueFd fd(server.accept());
        rk::UniqueFd other(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        ::dup2(other.get(), robbed.get());
    });
    EXPECT_THAT(robbed.connect(server.endpoint(), 300), FailsWith(-4, ENOTSOCK));
    thief.join();
}

TEST(ConnectTimeout, ConnectionStillInProgressCountsAsMade) {
    lab::Host cable("far", "eth1", "10.1.0.2/24", "10.1.0.1/24");
    Client client;
    const sockaddr_in nobody = rk::inet_endpoint(0x0a01004d, 9);
    EXPECT_EQ(takes_ms(100, [&] { return client.connect(nobody, 100); }), 0);
    EXPECT_FALSE(client.nonblocking());
}

TEST(SocketConnect, ConnectsToPort80OfTheFirstAddress) {
    // The machine's names, and no name server besides.
    lab::put("/tmp/hosts", "127.0.0.7 web.lab\n127.0.0.8 web.lab\n127.0.0.9 shut.lab\n");
    lab::put("/tmp/resolv.conf", "nameserver 127.0.0.1\n");
    ASSERT_EQ(::mount("/tmp/hosts", "/etc/hosts", nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(::mount("/tmp/resolv.conf", "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
    Server web(0x7f000007, 80);
    web.listen();
    Census census;
    {
        rk::UniqueFd fd(takes_ms(200, [] { return socket_connect("web.lab"); }));
        ASSERT_TRUE(fd);
        sockaddr_in peer = {};
        socklen_t size = sizeof peer;
        ::getpeername(fd.get(), reinterpret_cast<sockaddr *>(&peer), &size);
        EXPECT_EQ(ntohl(peer.sin_addr.s_addr), 0x7f000007U);
        for (int option : {SO_RCVTIMEO, SO_SNDTIMEO}) {
            timeval value = {};
            size = sizeof value;
            ::getsockopt(fd.get(), SOL_SOCKET, option, &value, &size);
            EXPECT_EQ(value.tv_sec * 1000000 + value.tv_usec, 2000000);
        }
        EXPECT_EQ(::fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(::fcntl(fd.get(), F_GETFD), FD_CLOEXEC);
    }
    EXPECT_EQ(socket_connect("nobody.lab"), -1);
    EXPECT_THAT(socket_connect("shut.lab"), FailsWith(-1, ECONNREFUSED));
    EXPECT_THAT(socket_connect("203.0.113.1"), FailsWith(-1, ENETUNREACH));
    EXPECT_THAT(without_descriptors([] { return socket_connect("127.0.0.7"); }),
                FailsWith(-1, EMFILE));
}

TEST(GetInAddr, ReadsEachKindOfAddress) {
    lab::Host cable("far", "fifteen-letters", "10.1.0.2/20", "10.1.0.1/20");
    lab::sh("ip link add ppp0 type veth peer name far0 && ip link set ppp0 up && "
            "ip addr add 10.3.0.1 peer 10.3.0.9 dev ppp0");
    Census census;
    struct Case {
        const char *ifname;
        unsigned kind;
        const char *address;
    };
    for (const Case &one : {Case{"ppp0", 2, "10.3.0.1"}, Case{"ppp0", 4, "255.255.255.255"},
                            Case{"ppp0", 0, "10.3.0.9"}, Case{"ppp0", 6, "10.3.0.9"},
                            Case{"fifteen-letters", 4, "255.255.240.0"}}) {
        char out[] = "#####";
        EXPECT_EQ(getInAddr(one.ifname, one.kind, out), 1);
        EXPECT_STREQ(ipv4_ntoa(out), one.address) << one.ifname << " kind " << one.kind;
        EXPECT_EQ(out[4], '#');
    }
    struct {
        sockaddr address;
        char canary = '#';
    } hardware;
    ASSERT_EQ(getInAddr("fifteen-letters", 8, &hardware), 1);
    EXPECT_EQ(hardware.address.sa_family, ARPHRD_ETHER);
    EXPECT_EQ(mac_ntoa_3(hardware.address.sa_data) + std::string("\n"),
              lab::get("/sys/class/net/fifteen-letters/address"));
    EXPECT_EQ(hardware.canary, '#');

    lab::sh("ip addr flush dev fifteen-letters");
    char out[] = "################";
    EXPECT_THAT(getInAddr("fifteen-letters", 2, out), FailsWith(0, EADDRNOTAVAIL));
    EXPECT_THAT(getInAddr("nosuch0", 8, out), FailsWith(0, ENODEV));
    EXPECT_THAT(getInAddr("fifteen-letters+", 8, out), FailsWith(0, ENODEV));
    EXPECT_THAT(without_descriptors([&] { return getInAddr("lo", 2, out); }), FailsWith(0, EMFILE));
    EXPECT_STREQ(out, "################");
}

TEST(WanSockBind, UsesTheConnectionsInterface) {
    lab::Host cable("far", "eth1", "10.1.0.2/24", "10.1.0.1/24");
    Client client;
    Census census;
    EXPECT_THAT(wan_sockBind(1, client.get()), FailsWith(-1, ENETDOWN));
    for (const char *none : {"nosuch0", "sixteen-letters+"}) {
        lab::put("/var/wan/1/con_iface", none);
        EXPECT_THAT(wan_sockBind(1, client.get()), FailsWith(-1, ENODEV)) << none;
    }
    lab::put("/var/wan/1/con_iface", "eth1");
    EXPECT_EQ(wan_sockBind(1, client.get()), 0);
    char name[IFNAMSIZ] = {};
    socklen_t size = sizeof name;
    EXPECT_EQ(::getsockopt(client.get(), SOL_SOCKET, SO_BINDTODEVICE, name, &size), 0);
    EXPECT_STREQ(name, "eth1");
    EXPECT_THAT(wan_sockBind(1, -1), FailsWith(-1, EBADF));
}

} // namespace
