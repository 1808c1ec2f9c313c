// The resolvers against the C library's and c-ares, all asking the same dnsmasq on the loopback.
#include <routerkit/clocks.h>
#include <routerkit/conversions.h>
#include <routerkit/dns.h>
#include <routerkit/files.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <ares.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mount.h>
#include <unistd.h>

#include "support/pairs.h"
#include "support/sandbox.h"
#include "support/server.h"

namespace {

constexpr const char *kFile = "/var/resolv.conf";
constexpr std::array kNames = {"www.example.lab", "a.lab", "update.device.vendor.lab"};
constexpr std::array kDotted = {"192.168.1.1", "8.8.8.8", "100.64.127.200"};

uint32_t address;

std::string answer() {
    char text[16];
    ipv4_itostr(text, address);
    return text;
}

void start_dnsmasq() {
    bench::start_server("dnsmasq", "--no-daemon", "--conf-file=/dev/null",
                        "--pid-file=", "--log-facility=/dev/null", "--no-resolv", "--no-hosts",
                        "--listen-address=127.0.0.1", "--bind-interfaces",
                        "--host-record=www.example.lab,192.0.2.1", "--host-record=a.lab,192.0.2.2",
                        "--host-record=update.device.vendor.lab,192.0.2.3");
}

void wait_for_dnsmasq() {
    for (int tries = 0; tries < 100; ++tries) {
        if (dns_resolve_domain(nullptr, kFile, kNames[0], &address, 1, 50) == 1) {
            return;
        }
        safe_msleep(20);
    }
    bench::give_up("dnsmasq (package dnsmasq-base) does not answer");
}

// The peers read /etc: they are to ask the same server, and nobody and nothing else.
void replace_in_etc(const char *name, const char *text) {
    std::string path = std::string("/etc/") + name;
    std::string ours = std::string("/var/") + name;
    if (writeStrToFile(ours.c_str(), text) < 0 ||
        (isFileExist(path.c_str()) != 0 &&
         ::mount(ours.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0)) {
        bench::give_up(path.c_str());
    }
}

void ask_c_library(const char *name) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    address = 0;
    if (::getaddrinfo(name, nullptr, &hints, &found) == 0) {
        const void *inet = found->ai_addr;
        address = ntohl(static_cast<const sockaddr_in *>(inet)->sin_addr.s_addr);
        ::freeaddrinfo(found);
    }
}

void take_host(void * /*argument*/, int status, int /*timeouts*/, hostent *host) {
    address = status == ARES_SUCCESS ? ipv4_ntoi(host->h_addr_list[0]) : 0;
}

// With a channel of its own, as a program that asks once does: our functions keep nothing between
// calls either.
void ask_c_ares(const char *name) {
    ares_channel channel;
    if (ares_init(&channel) != ARES_SUCCESS) {
        bench::give_up("ares_init");
    }
    ares_gethostbyname(channel, name, AF_INET, take_host, nullptr);
    ares_socket_t sockets[1];
    while (ARES_GETSOCK_READABLE(ares_getsock(channel, sockets, 1), 0)) {
        pollfd entry = {sockets[0], POLLIN, 0};
        int ready = ::poll(&entry, 1, 1000);
        ares_process_fd(channel, ready > 0 ? sockets[0] : ARES_SOCKET_BAD, ARES_SOCKET_BAD);
    }
    ares_destroy(channel);
}

template <typename Call>
void ask_server(const char *name, Call ours) {
    bench::Row row(name, kNames.size(), bench::Clock::kWall);
    row.ours(ours, answer);
    row.peer(
        "getaddrinfo", 0.96, [](size_t i) { ask_c_library(kNames[i]); }, answer);
    row.peer(
        "c-ares, new channel", 0.5, [](size_t i) { ask_c_ares(kNames[i]); }, answer);
}

void ask_nobody() {
    bench::Row row("dotted name", kDotted.size());
    row.ours([](size_t i) { dns_gethostbyname("lo", kFile, kDotted[i], &address); }, answer);
    row.peer(
        "getaddrinfo", 0.25, [](size_t i) { ask_c_library(kDotted[i]); }, answer);
}

} // namespace

void bench::declare_rows() {
    lab::enter_sandbox();
    replace_in_etc("resolv.conf", "nameserver 127.0.0.1\n");
    replace_in_etc("nsswitch.conf", "hosts: dns\n");
    if (ares_library_init(ARES_LIB_INIT_ALL) != ARES_SUCCESS) {
        bench::give_up("ares_library_init");
    }
    stay_on_one_processor();
    start_dnsmasq();
    wait_for_dnsmasq();
    ask_server("DNS query, dns_gethostbyname",
               [](size_t i) { dns_gethostbyname("lo", kFile, kNames[i], &address); });
    ask_server("DNS query, dns_resolve_domain",
               [](size_t i) { dns_resolve_domain("lo", kFile, kNames[i], &address, 1, 0); });
    ask_nobody();
}
