#include <routerkit/dns.h>

#include <climits>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::get;
using lab::put;

namespace {

constexpr const char *kFile = "/tmp/resolv.conf";
constexpr uint32_t kUntouched = 0xdeadbeef;

// The servers read from a text, `max` at most.
std::vector<uint32_t> servers_of(std::string_view text, unsigned max = 8) {
    lab::Census census;
    put(kFile, text);
    std::vector<uint32_t> servers(max + 1, kUntouched);
    int count = dns_readResolvConf(kFile, servers.data(), max);
    EXPECT_GE(count, 0);
    EXPECT_LE(count, static_cast<int>(max));
    EXPECT_EQ(servers[static_cast<size_t>(count)], kUntouched);
    servers.resize(static_cast<size_t>(count));
    return servers;
}

using Servers = std::vector<uint32_t>;

TEST(ResolvConf, WritesOneLineForEachServer) {
    lab::Census census;
    const uint32_t servers[] = {0, 0x0a000001, 0xffffffff, 0, 0x08080404};
    put(kFile, std::string(500, 'o'));
    EXPECT_EQ(dns_writeResolvConf(kFile, servers, 5), 66);
    EXPECT_EQ(get(kFile), "nameserver 10.0.0.1\nnameserver 255.255.255.255\nnameserver 8.8.4.4\n");
    EXPECT_EQ(dns_writeResolvConf(kFile, servers, 2), 20);
    EXPECT_EQ(get(kFile), "nameserver 10.0.0.1\n");
    EXPECT_EQ(dns_writeResolvConf(kFile, servers, 1), 0);
    EXPECT_EQ(get(kFile), "");
    EXPECT_TRUE(lab::exists(kFile));
    EXPECT_EQ(dns_writeResolvConf(kFile, nullptr, 0), 0);
    std::vector<uint32_t> many(1000, 0xffffffff);
    EXPECT_EQ(dns_writeResolvConf(kFile, many.data(), 1000), 27000);
    EXPECT_EQ(servers_of(get(kFile), 2000), many);
}

TEST(ResolvConf, RefusedWritesLeaveTheFile) {
    lab::Census census;
    const uint32_t server = 1;
    put(kFile, "old");
    EXPECT_THAT(dns_writeResolvConf("/tmp/missing/file", &server, 1), FailsWith(-1, ENOENT));
    EXPECT_THAT(dns_writeResolvConf(kFile, &server, UINT_MAX), FailsWith(-1, EOVERFLOW));
    EXPECT_THAT(dns_writeResolvConf(kFile, &server, INT_MAX / 28 + 1), FailsWith(-1, EOVERFLOW));
    EXPECT_EQ(get(kFile), "old");
}

#ifndef __SANITIZE_ADDRESS__ // whose shadow takes all of the address space
TEST(ResolvConf, NoMemoryLeavesTheFile) {
    put(kFile, "old");
    pid_t child = ::fork();
    if (child == 0) {
        const rlimit little = {1U << 30, 1U << 30};
        ::setrlimit(RLIMIT_AS, &little);
        const uint32_t server = 1;
        bool refused = dns_writeResolvConf(kFile, &server, INT_MAX / 28) == -1 && errno == ENOMEM;
        std::_Exit(refused ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(get(kFile), "old");
}
#endif

TEST(ResolvConf, ReadsTheLinesThatNameAServer) {
    EXPECT_EQ(servers_of("nameserver 8.8.8.8\n# comment\nnameserver  1.1.1.1\n"),
              (Servers{0x08080808, 0x01010101}));
    EXPECT_EQ(servers_of("search lan\noptions ndots:1\n\n nameserver 1.2.3.4\nnameserver\t1.2.3.4\n"
                         "Nameserver 1.2.3.4\nnameservers 1.2.3.4\n#nameserver 1.2.3.4"),
              Servers{});
    EXPECT_EQ(servers_of("nameserver 1.2.3.4#53\nnameserver 2.3.4.5 # first\nnameserver 3.4.5.6"),
              (Servers{0x01020304, 0x02030405, 0x03040506}));
    EXPECT_EQ(servers_of("nameserver 1.2.3.4\r\nnameserver     5.6.7.8\r\n"),
              (Servers{0x01020304, 0x05060708}));
    EXPECT_EQ(servers_of(""), Servers{});
    EXPECT_EQ(servers_of("nameserver 1.2.3.4\nnameserver 2.3.4.5\nnameserver 3.4.5.6\n", 2),
              (Servers{0x01020304, 0x02030405}));
    EXPECT_EQ(servers_of("nameserver 1.2.3.4\n", 0), Servers{});
}

TEST(ResolvConf, LineWithoutAnAddressGivesZero) {
    EXPECT_EQ(servers_of("nameserver fe80::1\nnameserver 1.2.3\nnameserver 1.2.3.256\n"
                         "nameserver dns.lan\nnameserver 9.9.9.9\n"),
              (Servers{0, 0, 0, 0, 0x09090909}));
    EXPECT_EQ(servers_of("nameserver \n1.2.3.4\nnameserver 1.2.\n3.4\n"), (Servers{0, 0}))
        << "an address never comes from the next line";
    EXPECT_EQ(servers_of(std::string("nameserver ") + '\0' + "1.2.3.4\nnameserver 4.3.2.1" + '\0'),
              (Servers{0, 0x04030201}));
    EXPECT_EQ(servers_of("nameserver "), Servers{0});
    EXPECT_EQ(servers_of("nameserver"), Servers{});
}

TEST(ResolvConf, FileThatCannotBeLoaded) {
    lab::Census census;
    uint32_t server = kUntouched;
    EXPECT_THAT(dns_readResolvConf("/tmp/missing", &server, 1), FailsWith(-1, ENOENT));
    EXPECT_THAT(dns_readResolvConf("/tmp", &server, 1), FailsWith(-1, EISDIR));
    EXPECT_EQ(server, kUntouched);
}

} // namespace
