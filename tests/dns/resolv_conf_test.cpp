#include <routerkit/dns.h>

#include <climits>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/lab.h"

using lab::FailsWith;
using lab::get;
using lab::put;

namespace {

constexpr const char *kFile = "/tmp/resolv.conf";
using Servers = std::vector<uint32_t>;

TEST(ResolvConf, WritesOneLineForEachServer) {
    lab::Census census;
    const uint32_t servers[] = {0, 0x0a000001, 0xffffffff, 0, 0x08080404};
    put(kFile, std::string(500, 'o'));
    EXPECT_EQ(dns_writeResolvConf(kFile, servers, 5), 66);
    EXPECT_EQ(get(kFile), "nameserver 10.0.0.1\nnameserver 255.255.255.255\nnameserver 8.8.4.4\n");
    EXPECT_EQ(dns_writeResolvConf(kFile, servers, 1), 0);
    EXPECT_EQ(get(kFile), "");
    EXPECT_EQ(dns_writeResolvConf(kFile, Servers(1000, 0xffffffff).data(), 1000), 27000);
    put(kFile, "old");
    EXPECT_THAT(dns_writeResolvConf("/tmp/missing/file", servers, 1), FailsWith(-1, ENOENT));
    EXPECT_THAT(dns_writeResolvConf(kFile, servers, INT_MAX / 28 + 1), FailsWith(-1, EOVERFLOW));
    EXPECT_EQ(get(kFile), "old");
}

#ifndef __SANITIZE_ADDRESS__ // whose shadow takes all of the address space
TEST(ResolvConf, NoMemoryLeavesTheFile) {
    put(kFile, "old");
    pid_t child = ::fork();
    if (child == 0) {
        const rlimit little = {1U << 30, 1U << 30};
        ::setrlimit(RLIMIT_AS, &little);
        bool refused = dns_writeResolvConf(kFile, nullptr, INT_MAX / 28) == -1 && errno == ENOMEM;
        std::_Exit(refused ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(get(kFile), "old");
}
#endif

TEST(ResolvConf, ReadsTheLinesThatNameAServer) {
    lab::Census census;
    struct Case {
        std::string text;
        Servers servers;
        unsigned max = 8;
    };
    const Case cases[] = {
        {"nameserver 8.8.8.8\n# comment\nnameserver  1.1.1.1", {0x08080808, 0x01010101}},
        {"search lan\n\n nameserver 1.2.3.4\nnameserver\t1.2.3.4\nNameserver 1.2.3.4\n"
         "nameservers 1.2.3.4\n#nameserver 1.2.3.4\nnameserver",
         {}},
        {"nameserver 1.2.3.4#53\r\nnameserver 2.3.4.5 # first\n", {0x01020304, 0x02030405}},
        {"nameserver 1.2.3.4\nnameserver 2.3.4.5\nnameserver 3.4.5.6", {0x01020304, 0x02030405}, 2},
        {"nameserver 1.2.3.4\n", {}, 0},
        // A line without an address gives 0; an address never comes from the next line.
        {"nameserver fe80::1\nnameserver 1.2.3.256\nnameserver 9.9.9.9\n", {0, 0, 0x09090909}},
        {"nameserver \n1.2.3.4\nnameserver 1.2.\n3.4\n", {0, 0}},
        {std::string("nameserver \0001.2.3.4\nnameserver 4.3.2.1\0", 39), {0, 0x04030201}},
    };
    for (const Case &one : cases) {
        put(kFile, one.text);
        Servers servers(one.max + 1, 0xdeadbeef);
        int count = dns_readResolvConf(kFile, servers.data(), one.max);
        EXPECT_EQ(count, static_cast<int>(one.servers.size())) << one.text;
        EXPECT_EQ(servers[one.servers.size()], 0xdeadbeef) << one.text;
        servers.resize(one.servers.size());
        EXPECT_EQ(servers, one.servers) << one.text;
    }
    uint32_t server;
    EXPECT_THAT(dns_readResolvConf("/tmp/missing", &server, 1), FailsWith(-1, ENOENT));
}

} // namespace
