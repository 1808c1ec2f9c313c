#include <routerkit/dns.h>

#include <atomic>
#include <csignal>
#include <thread>

#include <unistd.h>

#include <routerkit/clocks.h>

#include "support/lab.h"
#include "support/socket.h"
#include "support/syscalls.h"

using lab::FailsWith;
using lab::put;
using lab::takes_ms;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

namespace {

constexpr const char *kFile = "/tmp/resolv.conf";
constexpr unsigned kRoom = 80;
uint32_t addrs[kRoom];

void put_servers(std::initializer_list<const char *> list) {
    std::string text;
    for (const char *server : list) {
        text.append("nameserver ").append(server).append("\n");
    }
    put(kFile, text);
}

// --- Scripted name servers on the loopback ---

// The DNS port of 127.0.0.<last>: a silent server, in whose socket the queries wait.
class SilentServer : public rk::UniqueFd {
  public:
    explicit SilentServer(uint8_t last)
        : UniqueFd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in endpoint = rk::inet_endpoint(0x7f000000U | last, 53);
        EXPECT_EQ(::bind(get(), rk::as_sockaddr(endpoint), sizeof endpoint), 0) << errno;
    }

    std::vector<std::string> take_queries() {
        std::vector<std::string> queries;
        char query[2048];
        for (ssize_t size; (size = ::recv(get(), query, sizeof query, MSG_DONTWAIT)) >= 0;) {
            queries.emplace_back(query, static_cast<size_t>(size));
        }
        return queries;
    }
};

// Answers the number-th query (from 1) with what its script says, from another port: a reply counts
// whoever sends it.
class Server {
  public:
    using Script = std::function<std::string(const std::string &query, int number)>;

    Server(uint8_t last, Script script)
        : in_(last), script_(std::move(script)), thread_([this] { serve(); }) {}
    ~Server() {
        ::shutdown(in_.get(), SHUT_RD); // wakes the thread
        thread_.join();
    }

    [[nodiscard]] int queries() const { return queries_; }

  private:
    void serve() {
        sigset_t all; // the signals of a storm are not for this thread
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        char query[2048];
        sockaddr_in asker = {};
        socklen_t length = sizeof asker;
        for (ssize_t size;
             (size = ::recvfrom(in_.get(), query, sizeof query, 0,
                                reinterpret_cast<sockaddr *>(&asker), &length)) > 0;) {
            std::string reply = script_({query, static_cast<size_t>(size)}, ++queries_);
            ::sendto(out_.get(), reply.data(), reply.size(), 0, rk::as_sockaddr(asker), length);
        }
    }

    SilentServer in_;
    rk::UniqueFd out_{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    Script script_;
    std::atomic<int> queries_ = 0;
    std::thread thread_;
};

// A good reply: the question and these addresses.
std::string answer(const std::string &query, const std::vector<uint32_t> &addresses) {
    std::string reply = query;
    reply[2] = static_cast<char>(0x81);
    reply[7] = static_cast<char>(addresses.size());
    for (uint32_t address : addresses) {
        reply += std::string("\xc0\x0c\0\1\0\1\0\0\0\x3c\0\4", 12);
        uint32_t wire = htonl(address);
        reply.append(reinterpret_cast<const char *>(&wire), sizeof wire);
    }
    return reply;
}

std::string without_answers(const std::string &query, int /*number*/) {
    return answer(query, {});
}

std::string one_to_five(const std::string &query, int /*number*/) {
    return answer(query, {1, 2, 3, 4, 5});
}

// --- Both resolvers, for what they have in common ---

int all_at_once(const char *name, uint32_t *results, unsigned max) {
    return dns_resolve_domain("lo", kFile, name, results, max, 5000);
}

int in_turn(const char *name, uint32_t *results, unsigned max) {
    return dns_gethostsbyname("lo", kFile, name, results, static_cast<int>(max));
}

class BothResolvers : public testing::TestWithParam<decltype(&in_turn)> {
  protected:
    static int resolve(const char *name, uint32_t *results = addrs, unsigned max = kRoom) {
        lab::Census census;
        return GetParam()(name, results, max);
    }
};

INSTANTIATE_TEST_SUITE_P(Resolver, BothResolvers, testing::Values(all_at_once, in_turn),
                         [](const auto &tested) {
                             return tested.param == in_turn ? "InTurn" : "AllAtOnce";
                         });

TEST_P(BothResolvers, NullsAndBadNamesAskNobody) {
    SilentServer server(2);
    put_servers({"127.0.0.2"});
    EXPECT_THAT(resolve(nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(resolve("1.2.3.4", nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(resolve("a..b"), FailsWith(-1, EINVAL));
    EXPECT_THAT(server.take_queries(), IsEmpty());
}

TEST_P(BothResolvers, DottedNamesNeedNoSystemCall) {
    uptime_getms();
    EXPECT_THAT(lab::system_calls([] { GetParam()("192.168.1.1", addrs, 1); }), IsEmpty());
    addrs[0] = 7;
    EXPECT_EQ(resolve("192.168.1.1", addrs, 0), 0);
    EXPECT_EQ(addrs[0], 7U);
    EXPECT_EQ(resolve("192.168.1.1"), 1);
    EXPECT_EQ(addrs[0], 0xc0a80101);
}

TEST_P(BothResolvers, NoServersNoQuery) {
    EXPECT_THAT(resolve("www.lab"), FailsWith(-1, ENETDOWN)) << "no file";
    for (const char *text :
         {"", "nameserver 0.0.0.0\n",
          "nameserver ::1\nnameserver ::2\nnameserver ::3\nnameserver 9.9.9.9"}) {
        put(kFile, text);
        EXPECT_THAT(resolve("www.lab"), FailsWith(-1, ENETDOWN)) << text;
    }
    EXPECT_THAT(lab::without_descriptors([] { return GetParam()("www.lab", addrs, kRoom); }),
                FailsWith(-1, EMFILE));
}

TEST_P(BothResolvers, RepliesWithoutUseAreSkipped) {
    // Each shorter than the one before it, which lies in the same memory.
    Server server(2, [](const std::string &query, int number) {
        const std::string useless = answer(query, {0x66666666, 0x77777777});
        const std::string replies[] = {without_answers(query, 0) + std::string(900, '\xc0'),
                                       useless.substr(0, 12), "", query, query};
        return number <= 5 ? replies[number - 1] : one_to_five(query, number);
    });
    put_servers({"127.0.0.2"});
    addrs[0] = 7;
    EXPECT_THAT(resolve("www.lab"), FailsWith(-1, ENOENT));
    EXPECT_EQ(server.queries(), 3) << "one in each pass";
    EXPECT_EQ(addrs[0], 7U);
    EXPECT_EQ(resolve("www.lab", addrs, 2), 2) << "in the last pass";
    EXPECT_EQ(addrs[1], 2U);
}

TEST_P(BothResolvers, EveryServerIsAskedInEveryPass) {
    Server first(2, without_answers);
    Server second(3, without_answers);
    SilentServer local(1); // where a query to 0.0.0.0 would go
    put_servers({"127.0.0.2", "fe80::1", "127.0.0.3"});
    EXPECT_THAT(resolve("nothing.lab"), FailsWith(-1, ENOENT));
    EXPECT_EQ(first.queries(), 3);
    EXPECT_EQ(second.queries(), 3);
    EXPECT_THAT(local.take_queries(), IsEmpty()) << "servers that are 0 are passed over";
}

TEST_P(BothResolvers, ReplyLongerThanTheBufferCountsAsFarAsItGoes) {
    Server server(2, [](const std::string &query, int) {
        return answer(query, std::vector<uint32_t>(80, 0x0a0b0c0d));
    });
    put_servers({"127.0.0.2"});
    EXPECT_EQ(resolve("a.lab"), (1024 - 12 - 11) / 16);
}

TEST_P(BothResolvers, AtMostTenSystemCalls) {
    Server server(2, one_to_five);
    put_servers({"127.0.0.2"});
    EXPECT_EQ(resolve("www.lab"), 5); // warms up
    EXPECT_THAT(lab::system_calls([] { GetParam()("www.lab", addrs, 1); }), SizeIs(Le(10U)));
}

// --- What only one of them does ---

TEST(ResolveDomain, AsksTheFirstThreeServersAndTakesTheFirstUsableReply) {
    SilentServer silent(2);
    Server useless(3, without_answers);
    Server good(4, [](const std::string &query, int number) {
        ::usleep(20000); // after the useless reply
        return one_to_five(query, number);
    });
    SilentServer fourth(5);
    put_servers({"127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"});
    lab::Census census;
    EXPECT_EQ(dns_resolve_domain("lo", kFile, "www.lab.", addrs, kRoom, 1000), 5);
    EXPECT_THAT(silent.take_queries(),
                ElementsAre(std::string("\1\0\1\0\0\1\0\0\0\0\0\0\3www\3lab\0\0\1\0\1", 25)));
    EXPECT_THAT(fourth.take_queries(), IsEmpty());
}

TEST(ResolveDomain, OneDeadlineServesAllPassesSignalsOrNot) {
    Server late(2, [](const std::string &query, int number) {
        ::usleep(80000);
        return without_answers(query, number);
    });
    put_servers({"127.0.0.2"});
    lab::SignalStorm storm;
    lab::Census census;
    EXPECT_THAT(
        takes_ms(200, [] { return dns_resolve_domain("lo", kFile, "www.lab", addrs, 1, 200); }),
        FailsWith(-1, ETIME));
    EXPECT_EQ(late.queries(), 3);
}

TEST(GetHostsByName, SilentServerTakesAllTheTime) {
    SilentServer silent(2);
    Server good(3, one_to_five);
    put_servers({"127.0.0.2", "127.0.0.3"});
    lab::SignalStorm storm;
    lab::Census census;
    EXPECT_THAT(takes_ms(2000, [] { return dns_gethostbyname("lo", kFile, "www.lab", addrs); }),
                FailsWith(-1, ETIME));
    EXPECT_THAT(silent.take_queries(), SizeIs(1));
    EXPECT_EQ(good.queries(), 0);
}

TEST(Resolvers, SendFailureEndsOneAndTheOtherGoesOn) {
    Server good(2, one_to_five);
    put_servers({"203.0.113.1", "127.0.0.2"}); // the first without a route
    lab::Census census;
    EXPECT_THAT(dns_resolve_domain(nullptr, kFile, "www.lab", addrs, 1, 1000),
                FailsWith(-1, ENETUNREACH));
    EXPECT_EQ(good.queries(), 0);
    EXPECT_EQ(dns_gethostbyname(nullptr, kFile, "www.lab", addrs), 1);
    EXPECT_EQ(addrs[0], 1U);
    EXPECT_EQ(good.queries(), 1);
    addrs[0] = 7;
    EXPECT_EQ(dns_gethostsbyname(nullptr, kFile, "www.lab", addrs, -5), 0);
    EXPECT_EQ(addrs[0], 7U);
    put_servers({"203.0.113.1"});
    EXPECT_THAT(dns_gethostbyname(nullptr, kFile, "www.lab", addrs), FailsWith(-1, ENOENT));
}

// --- Real servers, one behind each of two interfaces, with the same address ---

class RealServer {
  public:
    RealServer(const std::string &name, const std::string &ifname, const std::string &address,
               const std::string &www)
        : host_(name, ifname, address, "10.1.0.1/24"),
          dnsmasq_(host_.command("dnsmasq --no-daemon --conf-file=/dev/null "
                                 "--pid-file= --log-facility=/dev/null --no-resolv --no-hosts "
                                 "--listen-address=10.1.0.1 --bind-interfaces --local=/lab/ "
                                 "--host-record=v6.lab,fd00::1 --cname=alias.lab,www.lab "
                                 "--host-record=www.lab," +
                                 www)) {
        EXPECT_TRUE(lab::wait_until([&] {
            return dns_resolve_domain(ifname.c_str(), kFile, "www.lab", addrs, 1, 50) == 1;
        })) << "dnsmasq (package dnsmasq-base) does not answer";
    }

  private:
    lab::Host host_;
    lab::Background dnsmasq_;
};

TEST(RealServers, AreAskedThroughTheChosenInterface) {
    put_servers({"10.1.0.1"});
    RealServer first("isp1", "eth1", "10.1.0.2/24", "192.0.2.1");
    RealServer second("isp2", "abcdefghijklmno", "10.1.0.3/24", "192.0.2.2");
    lab::Census census;
    EXPECT_EQ(dns_gethostsbyname("eth1", kFile, "www.lab", addrs, kRoom), 1);
    EXPECT_EQ(addrs[0], 0xc0000201U);
    EXPECT_EQ(dns_gethostsbyname("abcdefghijklmno", kFile, "WWW.lab.", addrs, kRoom), 1);
    EXPECT_EQ(addrs[0], 0xc0000202U);
    EXPECT_EQ(dns_resolve_domain("eth1", kFile, "alias.lab", addrs, kRoom, 0), 1);
    EXPECT_EQ(addrs[0], 0xc0000201U);
    for (const char *ifname : {"eth9", "abcdefghijklmnop"}) { // the kernel would cut the second
        EXPECT_THAT(dns_gethostbyname(ifname, kFile, "www.lab", addrs), FailsWith(-1, ENODEV));
    }
    for (const char *name : {"v6.lab", "nothing.lab"}) {
        EXPECT_THAT(dns_gethostbyname("eth1", kFile, name, addrs), FailsWith(-1, ENOENT));
    }
}

} // namespace
