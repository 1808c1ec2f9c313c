#include <routerkit/dns.h>

#include <atomic>
#include <new>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <routerkit/clocks.h>

#include "support/lab.h"
#include "support/socket.h"
#include "support/syscalls.h"

using lab::elapsed_ms;
using lab::FailsWith;
using lab::put;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

namespace {

constexpr const char *kFile = "/tmp/resolv.conf";
constexpr unsigned kRoom = 80;
uint32_t addrs[kRoom];

std::string servers(std::initializer_list<const char *> list) {
    std::string text;
    for (const char *server : list) {
        text.append("nameserver ").append(server).append("\n");
    }
    return text;
}

// --- Scripted name servers on the loopback ---

// The DNS port of 127.0.0.<last>.
class ServerSocket : public rk::UniqueFd {
  public:
    explicit ServerSocket(uint8_t last)
        : UniqueFd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in endpoint = rk::inet_endpoint(0x7f000000U | last, 53);
        EXPECT_EQ(::bind(get(), rk::as_sockaddr(endpoint), sizeof endpoint), 0) << errno;
    }
};

// Never answers; the queries wait in its socket.
class SilentServer {
  public:
    explicit SilentServer(uint8_t last) : fd_(last) {}

    std::vector<std::string> take_queries() {
        std::vector<std::string> queries;
        char query[2048];
        for (ssize_t size; (size = ::recv(fd_.get(), query, sizeof query, MSG_DONTWAIT)) >= 0;) {
            queries.emplace_back(query, static_cast<size_t>(size));
        }
        return queries;
    }

  private:
    ServerSocket fd_;
};

// Answers the number-th query (from 1) with what its script says, from another port: a reply counts
// whoever sends it.
class Server {
  public:
    using Script = std::function<std::string(const std::string &query, int number)>;

    Server(uint8_t last, const Script &script)
        : queries_(new (::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                               MAP_SHARED | MAP_ANONYMOUS, -1, 0)) std::atomic<int>(0)),
          child_(start(last, script)) {}
    ~Server() { ::munmap(queries_, sizeof *queries_); }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    [[nodiscard]] int queries() const { return *queries_; }

  private:
    pid_t start(uint8_t last, const Script &script) {
        ServerSocket in(last); // before the fork: ready at once
        pid_t child = ::fork();
        if (child == 0) {
            serve(in.get(), script);
        }
        return child;
    }

    [[noreturn]] void serve(int in, const Script &script) {
        rk::UniqueFd out(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        for (;;) {
            char query[2048];
            sockaddr_in asker = {};
            socklen_t length = sizeof asker;
            ssize_t size = ::recvfrom(in, query, sizeof query, 0,
                                      reinterpret_cast<sockaddr *>(&asker), &length);
            std::string reply = script({query, static_cast<size_t>(size)}, ++*queries_);
            ::sendto(out.get(), reply.data(), reply.size(), 0, rk::as_sockaddr(asker), length);
        }
    }

    std::atomic<int> *queries_;
    lab::Host::Child child_;
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

Server::Script always(uint32_t address) {
    return [=](const std::string &query, int) { return answer(query, {address}); };
}

// --- Both resolvers, for what they have in common ---

struct Resolver {
    const char *name;
    int (*resolve)(const char *name, uint32_t *results, unsigned max);
};

const Resolver kResolvers[] = {
    {"AllAtOnce",
     [](const char *name, uint32_t *results, unsigned max) {
         return dns_resolve_domain("lo", kFile, name, results, max, 5000);
     }},
    {"InTurn",
     [](const char *name, uint32_t *results, unsigned max) {
         return dns_gethostsbyname("lo", kFile, name, results, static_cast<int>(max));
     }},
};

void PrintTo(const Resolver &resolver, std::ostream *out) {
    *out << resolver.name;
}

class BothResolvers : public testing::TestWithParam<Resolver> {
  protected:
    static int resolve(const char *name, uint32_t *results = addrs, unsigned max = kRoom) {
        lab::Census census;
        return GetParam().resolve(name, results, max);
    }
};

INSTANTIATE_TEST_SUITE_P(Resolver, BothResolvers, testing::ValuesIn(kResolvers),
                         testing::PrintToStringParamName());

TEST_P(BothResolvers, NullsAndBadNamesAskNobody) {
    SilentServer server(2);
    put(kFile, servers({"127.0.0.2"}));
    EXPECT_THAT(resolve(nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(resolve("www.lab", nullptr), FailsWith(-1, EINVAL));
    EXPECT_THAT(resolve("1.2.3.4", nullptr), FailsWith(-1, EINVAL));
    for (const char *name : {"", ".", "a..b", ".a"}) {
        EXPECT_THAT(resolve(name), FailsWith(-1, EINVAL)) << name;
    }
    EXPECT_THAT(resolve(std::string(64, 'a').c_str()), FailsWith(-1, EINVAL));
    EXPECT_THAT(server.take_queries(), IsEmpty());
}

TEST_P(BothResolvers, DottedNamesNeedNoSystemCall) {
    put(kFile, "");
    uptime_getms();
    EXPECT_THAT(lab::system_calls([] { GetParam().resolve("192.168.1.1", addrs, 1); }), IsEmpty());
    addrs[0] = 7;
    EXPECT_EQ(resolve("192.168.1.1", addrs, 0), 0);
    EXPECT_EQ(addrs[0], 7U);
    EXPECT_EQ(resolve("192.168.1.1"), 1);
    EXPECT_EQ(addrs[0], 0xc0a80101);
}

TEST_P(BothResolvers, NoServersNoSocket) {
    for (const char *text :
         {"", "search lan\n", "nameserver ::1\nnameserver 0.0.0.0\n",
          "nameserver ::1\nnameserver ::2\nnameserver ::3\nnameserver 9.9.9.9"}) {
        put(kFile, text);
        EXPECT_THAT(resolve("www.lab"), FailsWith(-1, ENETDOWN)) << text;
    }
    ::unlink(kFile);
    EXPECT_THAT(resolve("www.lab"), FailsWith(-1, ENETDOWN));
    EXPECT_EQ(resolve("1.2.3.4"), 1);

    auto ask = GetParam().resolve; // below, not even the sanitizers can open anything
    rlimit before;
    ::getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none = {0, before.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    int result = ask("www.lab", addrs, kRoom);
    int error = errno;
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(error, EMFILE);
}

TEST_P(BothResolvers, RepliesWithoutUseAreSkipped) {
    // Each shorter than the one before it, which lies in the same memory.
    Server server(2, [](const std::string &query, int number) {
        std::string useless = answer(query, {0x66666666, 0x77777777});
        switch (number % 3) {
        case 1:
            return useless.replace(6, 2, 2, '\0') + std::string(900, '\xc0');
        case 2:
            return useless.substr(0, 12);
        default:
            return std::string();
        }
    });
    put(kFile, servers({"127.0.0.2"}));
    addrs[0] = 7;
    EXPECT_THAT(resolve("www.lab"), FailsWith(-1, ENOENT));
    EXPECT_EQ(server.queries(), 3) << "one in each pass";
    EXPECT_EQ(addrs[0], 7U);
}

TEST_P(BothResolvers, LastPassMayStillSucceed) {
    Server server(2, [](const std::string &query, int number) {
        return number < 3 ? query : answer(query, {1, 2, 3, 4, 5});
    });
    put(kFile, servers({"127.0.0.2"}));
    EXPECT_EQ(resolve("www.lab.", addrs, 2), 2);
    EXPECT_THAT(std::vector(addrs, addrs + 2), ElementsAre(1, 2));
    EXPECT_EQ(server.queries(), 3);
}

TEST_P(BothResolvers, EveryServerIsAskedInEveryPass) {
    Server first(2, without_answers);
    Server second(3, without_answers);
    SilentServer local(1); // where a query to 0.0.0.0 would go
    put(kFile, servers({"127.0.0.2", "fe80::1", "127.0.0.3"}));
    EXPECT_THAT(resolve("nothing.lab"), FailsWith(-1, ENOENT));
    EXPECT_EQ(first.queries(), 3);
    EXPECT_EQ(second.queries(), 3);
    EXPECT_THAT(local.take_queries(), IsEmpty()) << "servers that are 0 are passed over";
}

TEST_P(BothResolvers, ReplyLongerThanTheBufferCountsAsFarAsItGoes) {
    Server server(2, [](const std::string &query, int) {
        return answer(query, std::vector<uint32_t>(80, 0x0a0b0c0d));
    });
    put(kFile, servers({"127.0.0.2"}));
    EXPECT_EQ(resolve("a.lab"), (1024 - 12 - 11) / 16);
    EXPECT_EQ(resolve("a.lab", addrs, 0), -1) << "unreadable with nothing stored";
    EXPECT_EQ(errno, ENOENT);
}

TEST_P(BothResolvers, AtMostTenSystemCalls) {
    Server server(2, always(0x01020304));
    put(kFile, servers({"127.0.0.2"}));
    EXPECT_EQ(resolve("www.lab"), 1); // warms up
    EXPECT_THAT(lab::system_calls([] { GetParam().resolve("www.lab", addrs, 1); }),
                SizeIs(Le(10U)));
}

// --- What only one of them does ---

TEST(ResolveDomain, TakesTheFirstUsableReplyOfAnyServer) {
    SilentServer silent(2);
    Server useless(3, without_answers);
    Server good(4, [](const std::string &query, int) {
        ::usleep(20000); // after the useless reply
        return answer(query, {0x01020304});
    });
    put(kFile, servers({"127.0.0.2", "127.0.0.3", "127.0.0.4"}));
    lab::Census census;
    EXPECT_EQ(dns_resolve_domain("lo", kFile, "www.lab", addrs, kRoom, 1000), 1);
    EXPECT_EQ(addrs[0], 0x01020304U);
    EXPECT_THAT(silent.take_queries(), SizeIs(1));
}

TEST(ResolveDomain, AsksTheFirstThreeServersOfTheFile) {
    SilentServer first(2);
    SilentServer second(3);
    SilentServer third(4);
    SilentServer fourth(5);
    put(kFile, servers({"127.0.0.2", "127.0.0.3", "127.0.0.4", "127.0.0.5"}));
    lab::Census census;
    EXPECT_THAT(dns_resolve_domain(nullptr, kFile, "www.lab", addrs, 1, 30), FailsWith(-1, ETIME));
    const std::string query("\1\0\1\0\0\1\0\0\0\0\0\0\3www\3lab\0\0\1\0\1", 25);
    EXPECT_THAT(first.take_queries(), ElementsAre(query));
    EXPECT_THAT(second.take_queries(), ElementsAre(query));
    EXPECT_THAT(third.take_queries(), ElementsAre(query));
    EXPECT_THAT(fourth.take_queries(), IsEmpty());
}

TEST(ResolveDomain, OneDeadlineServesAllPasses) {
    Server late(2, [](const std::string &query, int) {
        ::usleep(80000);
        return answer(query, {});
    });
    put(kFile, servers({"127.0.0.2"}));
    lab::Census census;
    int64_t took = elapsed_ms([] {
        EXPECT_THAT(dns_resolve_domain(nullptr, kFile, "www.lab", addrs, 1, 200),
                    FailsWith(-1, ETIME));
    });
    EXPECT_THAT(took, AllOf(Ge(199), Le(250)));
    EXPECT_EQ(late.queries(), 3);
}

TEST(ResolveDomain, SignalsDoNotStretchTheWait) {
    SilentServer silent(2);
    put(kFile, servers({"127.0.0.2"}));
    lab::SignalStorm storm;
    lab::Census census;
    int64_t took = elapsed_ms([] {
        EXPECT_THAT(dns_resolve_domain(nullptr, kFile, "www.lab", addrs, 1, 300),
                    FailsWith(-1, ETIME));
    });
    EXPECT_THAT(took, AllOf(Ge(299), Le(350)));
    EXPECT_GT(lab::SignalStorm::count(), 50);
}

TEST(ResolveDomain, SendFailureEndsTheCall) {
    Server good(2, always(1));
    lab::Census census;
    put(kFile, servers({"203.0.113.1", "127.0.0.2"})); // without a route
    EXPECT_THAT(dns_resolve_domain(nullptr, kFile, "www.lab", addrs, 1, 1000),
                FailsWith(-1, ENETUNREACH));
    EXPECT_EQ(good.queries(), 0);
}

TEST(GetHostsByName, SendFailureGoesOnWithTheNextServer) {
    Server good(2, always(0x01020304));
    put(kFile, servers({"203.0.113.1", "127.0.0.2"}));
    lab::Census census;
    EXPECT_EQ(dns_gethostbyname(nullptr, kFile, "www.lab", addrs), 1);
    EXPECT_EQ(addrs[0], 0x01020304U);
    put(kFile, servers({"203.0.113.1"}));
    EXPECT_THAT(dns_gethostbyname(nullptr, kFile, "www.lab", addrs), FailsWith(-1, ENOENT));
}

TEST(GetHostsByName, UselessServerIsFollowedByTheNext) {
    Server useless(2, without_answers);
    Server good(3, always(0x01020304));
    put(kFile, servers({"127.0.0.2", "127.0.0.3"}));
    lab::Census census;
    EXPECT_EQ(dns_gethostsbyname(nullptr, kFile, "www.lab", addrs, 5), 1);
    EXPECT_EQ(useless.queries(), 1);
    EXPECT_EQ(good.queries(), 1);
    addrs[0] = 7;
    EXPECT_EQ(dns_gethostsbyname(nullptr, kFile, "www.lab", addrs, -5), 0);
    EXPECT_EQ(dns_gethostsbyname(nullptr, kFile, "1.2.3.4", addrs, -5), 0);
    EXPECT_EQ(addrs[0], 7U);
    EXPECT_THAT(dns_gethostbyname(nullptr, kFile, "www.lab", nullptr), FailsWith(-1, EINVAL));
}

TEST(GetHostsByName, SilentServerTakesAllTheTime) {
    SilentServer silent(2);
    Server good(3, always(1));
    put(kFile, servers({"127.0.0.2", "127.0.0.3"}));
    lab::SignalStorm storm;
    lab::Census census;
    int64_t took = elapsed_ms([] {
        EXPECT_THAT(dns_gethostbyname(nullptr, kFile, "www.lab", addrs), FailsWith(-1, ETIME));
    });
    EXPECT_THAT(took, AllOf(Ge(1999), Le(2050)));
    EXPECT_THAT(silent.take_queries(), SizeIs(1));
    EXPECT_EQ(good.queries(), 0);
}

// --- Real servers, one behind each of two interfaces, with the same address ---

class RealServer {
  public:
    RealServer(const std::string &name, const std::string &ifname, const std::string &address,
               const std::string &www)
        : host_(name, ifname, address, "10.1.0.1/24"),
          dnsmasq_(host_.command("dnsmasq --keep-in-foreground --conf-file=/dev/null --user=root "
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
    put(kFile, servers({"10.1.0.1"}));
    RealServer first("isp1", "eth1", "10.1.0.2/24", "192.0.2.1");
    RealServer second("isp2", "abcdefghijklmno", "10.1.0.3/24", "192.0.2.2");
    lab::Census census;
    EXPECT_EQ(dns_gethostsbyname("eth1", kFile, "www.lab", addrs, kRoom), 1);
    EXPECT_EQ(addrs[0], 0xc0000201U);
    EXPECT_EQ(dns_gethostsbyname("abcdefghijklmno", kFile, "WWW.lab.", addrs, kRoom), 1);
    EXPECT_EQ(addrs[0], 0xc0000202U);
    EXPECT_EQ(dns_resolve_domain("abcdefghijklmno", kFile, "alias.lab", addrs, kRoom, 0), 1);
    EXPECT_EQ(addrs[0], 0xc0000202U);

    for (const char *ifname : {"eth9", "abcdefghijklmnop"}) { // the kernel would cut the second
        EXPECT_THAT(dns_resolve_domain(ifname, kFile, "www.lab", addrs, kRoom, 1000),
                    FailsWith(-1, ENODEV));
        EXPECT_THAT(dns_gethostbyname(ifname, kFile, "www.lab", addrs), FailsWith(-1, ENODEV));
    }
    for (const char *name : {"v6.lab", "nothing.lab"}) {
        EXPECT_THAT(dns_resolve_domain("eth1", kFile, name, addrs, kRoom, 1000),
                    FailsWith(-1, ENOENT));
        EXPECT_THAT(dns_gethostbyname("eth1", kFile, name, addrs), FailsWith(-1, ENOENT));
    }
}

TEST(RealServers, ClosedPortIsAWaitNotAFailure) {
    lab::Host host("isp3", "eth3", "10.1.0.2/24", "10.1.0.1/24");
    put(kFile, servers({"10.1.0.1"}));
    lab::Census census;
    EXPECT_THAT(dns_resolve_domain("eth3", kFile, "www.lab", addrs, kRoom, 50),
                FailsWith(-1, ETIME));
}

} // namespace
