#include <routerkit/dns.h>

#include <algorithm>
#include <span>

#include <routerkit/conversions.h>
#include <routerkit/sockets.h>

#include "dns/message.h"
#include "net/inet.h"
#include "support/deadline.h"
#include "support/socket.h"

using rk::Deadline;
using rk::fail;
using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr uint16_t kDnsPort = 53;
constexpr unsigned kMostServers = 3;
constexpr int kPasses = 3;
constexpr uint32_t kDefaultTimeoutMs = 10000;
constexpr uint32_t kInTurnTimeoutMs = 2000;

constexpr int kUselessReply = -2;

// The caller's room for addresses.
struct Results {
    uint32_t *addrs;
    unsigned max;

    // Stores the only address, where there is room for one; the number stored.
    [[nodiscard]] int store(uint32_t address) const {
        if (max == 0) {
            return 0;
        }
        addrs[0] = address;
        return 1;
    }
};

// One query, and whom to ask from which socket.
struct Exchange {
    int fd;
    std::span<const uint32_t> servers;
    std::span<const uint8_t> query;
    Results results;

    [[nodiscard]] bool send_to(uint32_t server) const {
        return rk::send_to(fd, query.data(), query.size(), server, kDnsPort) >= 0;
    }

    // The number of addresses in the next reply, whoever sent it; kUselessReply; or -1.
    [[nodiscard]] int receive(Deadline deadline) const {
        if (poll_sock_recv(fd, deadline.time()) <= 0) {
            return -1;
        }
        uint8_t reply[rk::dns::kMessageSize];
        ssize_t size = retry_eintr([&] { return ::recv(fd, reply, sizeof reply, 0); });
        if (size < 0) {
            return -1;
        }
        int count =
            rk::dns::parse_reply(reply, static_cast<size_t>(size), results.addrs, results.max);
        return count < 0 ? kUselessReply : count;
    }
};

// Asks all the servers before it awaits as many replies, or one after the other.
enum class Order { kAllAtOnce, kInTurn };

int ask(const Exchange &exchange, Order order, Deadline deadline) {
    for (int pass = 0; pass < kPasses; ++pass) {
        size_t awaited = 0;
        for (size_t i = 0; i < exchange.servers.size(); ++i) {
            if (exchange.send_to(exchange.servers[i])) {
                ++awaited;
            } else if (order == Order::kAllAtOnce) {
                return -1;
            }
            // kInTurn awaits its reply at once, kAllAtOnce all of them when the last server is asked.
            bool last = i + 1 == exchange.servers.size();
            for (; awaited != 0 && (last || order == Order::kInTurn); --awaited) {
                int count = exchange.receive(deadline);
                if (count != kUselessReply) {
                    return count;
                }
            }
        }
    }
    return fail(ENOENT);
}

// The servers that a file names, less those that are 0.
std::span<const uint32_t> read_servers(const char *path, uint32_t (&servers)[kMostServers]) {
    int count = dns_readResolvConf(path, servers, kMostServers);
    size_t kept = 0;
    for (int i = 0; i < count; ++i) {
        if (servers[i] != 0) {
            servers[kept++] = servers[i];
        }
    }
    return {servers, kept};
}

int ask_servers(const char *ifname, const char *resolv_path, const char *name, Results results,
                Order order, uint32_t timeout_ms) {
    uint8_t query[rk::dns::kMessageSize];
    size_t length = rk::dns::build_query(query, name);
    if (length == 0) {
        return fail(EINVAL);
    }
    UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        return -1;
    }
    uint32_t storage[kMostServers];
    std::span<const uint32_t> servers = read_servers(resolv_path, storage);
    if (servers.empty()) {
        return fail(ENETDOWN);
    }
    if (ifname != nullptr && rk::bind_to_device(fd.get(), ifname) != 0) {
        return -1;
    }
    return ask({fd.get(), servers, {query, length}, results}, order, Deadline::in(timeout_ms));
}

int resolve(const char *ifname, const char *resolv_path, const char *name, Results results,
            Order order, uint32_t timeout_ms) {
    if (name == nullptr || results.addrs == nullptr) {
        return fail(EINVAL);
    }
    uint8_t octets[4];
    const char *end = ipv4_aton(octets, name);
    if (end != nullptr && *end == '\0') { // ipv4_isip, without parsing twice
        return results.store(ipv4_ntoi(octets));
    }
    return ask_servers(ifname, resolv_path, name, results, order, timeout_ms);
}

} // namespace

int dns_resolve_domain(const char *ifname, const char *resolv_path, const char *name,
                       uint32_t *addrs, unsigned max, unsigned timeout_ms) {
    return resolve(ifname, resolv_path, name, {addrs, max}, Order::kAllAtOnce,
                   timeout_ms != 0 ? timeout_ms : kDefaultTimeoutMs);
}

int dns_gethostsbyname(const char *ifname, const char *resolv_path, const char *name,
                       uint32_t *addrs, int max) {
    return resolve(ifname, resolv_path, name, {addrs, static_cast<unsigned>(std::max(max, 0))},
                   Order::kInTurn, kInTurnTimeoutMs);
}

int dns_gethostbyname(const char *ifname, const char *resolv_path, const char *name,
                      uint32_t *addr) {
    return dns_gethostsbyname(ifname, resolv_path, name, addr, 1);
}
