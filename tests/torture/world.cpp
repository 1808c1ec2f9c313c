#include "torture/world.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <utility>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <routerkit/logs.h>
#include <routerkit/ping.h>
#include <routerkit/routes.h>

#include "support/lab.h"
#include "support/socket.h"

namespace torture {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kFar = 0x0a010001;

bool doomed = false;

int bound(int type, uint16_t port) {
    int socket = ::socket(AF_INET, type | SOCK_CLOEXEC, 0);
    constexpr int kOn = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &kOn, sizeof kOn);
    sockaddr_in here = rk::inet_endpoint(INADDR_LOOPBACK, port);
    EXPECT_EQ(::bind(socket, rk::as_sockaddr(here), sizeof here), 0);
    return socket;
}

// Answers a DNS question with the address 10.9.8.7.
void answer_question(int socket) {
    char message[1500];
    sockaddr_in from;
    socklen_t size = sizeof from;
    ssize_t length = ::recvfrom(socket, message, sizeof message - 16, 0,
                                reinterpret_cast<sockaddr *>(&from), &size);
    message[2] = '\x81'; // a reply
    message[7] = 1;      // with one record
    constexpr char kRecord[] = "\xc0\x0c\0\1\0\1\0\0\0\x3c\0\4\x0a\x09\x08\x07";
    std::copy_n(kRecord, 16, message + length);
    ::sendto(socket, message, static_cast<size_t>(length) + 16, 0, rk::as_sockaddr(from), size);
}

// Sends the same reply to whoever connects, at once, and waits until they have left.
void serve_client(int listener) {
    const std::string body = R"([{"jsonrpc":"2.0","id":0,"result":7}])";
    const std::string reply = "HTTP/1.1 200 OK\r\nSet-Cookie: id=1; path=/\r\nContent-Length: " +
                              std::to_string(body.size()) + "\r\n\r\n" + body;
    int client = ::accept(listener, nullptr, nullptr);
    ::send(client, reply.data(), reply.size(), MSG_NOSIGNAL);
    ::shutdown(client, SHUT_WR);
    char block[4096];
    while (::read(client, block, sizeof block) > 0) {
    }
    ::close(client);
}

void start_servers() {
    int dns = bound(SOCK_DGRAM, 53);
    int http = bound(SOCK_STREAM, 80);
    ::listen(http, 16);
    if (::fork() == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (pollfd both[] = {{dns, POLLIN, 0}, {http, POLLIN, 0}}; ::poll(both, 2, -1) > 0;) {
            both[0].revents != 0 ? answer_question(dns) : void();
            both[1].revents != 0 ? serve_client(http) : void();
        }
        std::_Exit(0);
    }
    ::close(dns);
    ::close(http);
}

void build_hardware() {
    ::setenv("ROUTERKIT_SIM", "/run/sim", 1);
    lab::put("/run/sim/eth1/2", "7\n");
    lab::put("/run/sim/eth1/link", "up\n");
    lab::put("/run/sim/wlan0/ssid", "str LAN\n");
    lab::put("/run/sim/wlan0/chan", "int4 5\n");
    lab::put("/run/sim/wlan0/key", "bin 00FF\n");
    lab::put("/run/sim/flash/partitions", "heading\nmtd2: 00060000 00001000 \"jffs2 file\"\n");
    lab::put("/run/sim/flash/mtd2", std::string(0x60000, '\0'));
    image.assign(16, '\0');
    image[14] = 0x20; // a payload of 8 KB at the partition's start
    image.append(0x2000, '\0');
}

// The attributes of a connection.
void build_connection(const std::string &index, const std::string &interface) {
    const std::string folder = "/var/wan/" + index + "/";
    const std::pair<const char *, std::string> files[] = {
        {"index", index},
        {"iface_index", "7"},
        {"type", "3"},
        {"vlan", "5"},
        {"purpose", "2"},
        {"modem", "2"},
        {"parent", "2"},
        {"status", "20 connected"},
        {"ip", "10.1.0.2/24"},
        {"gateway", "10.1.0.1"},
        {"phy_iface", interface},
        {"eth_iface", interface},
        {"con_iface", interface},
        {"enabled", ""},
        {"inet", ""},
        {"routes", "10.2.0.0/16-10.1.0.1\n"},
        {"resolv.conf", "nameserver 127.0.0.1\n"},
        {"uptime", "100\n"},
        {"last-downtime", "90\n"},
        {"all-sessions-time", "1000\n"},
        {"pppoe-sessions-time", "500\n"},
    };
    for (const auto &[name, content] : files) {
        lab::put(folder + name, content);
    }
}

void remove_routes() {
    route_del(0x0a020000, 0xffff0000, 0, nullptr);
    route_del_host(0x0a030001);
    while (route_del(0, 0, 0, nullptr) == 0) {
    }
}

// The files below are made and removed thousands of times. What else the sandbox has there, a checkout
// perhaps, is out of reach.
void cover_folders() {
    for (const char *folder : {"/tmp", "/var"}) {
        if (::mount("world", folder, "tmpfs", 0, "mode=0755") != 0) {
            std::perror("cover the folders");
            std::_Exit(1);
        }
    }
    ASSERT_EQ(::chdir("/"), 0);
}

void remove_files(const char *folder) {
    for (const auto &entry : fs::directory_iterator(folder)) {
        fs::remove_all(entry.path());
    }
}

} // namespace

void open_world() {
    static bool open = false;
    if (std::exchange(open, true)) {
        return;
    }
    cover_folders();
    static auto far = std::make_unique<lab::Host>("far", "eth1", "10.1.0.2/24", "10.1.0.1/24");
    lab::sh("ip neigh add 10.1.0.50 lladdr 02:00:00:00:00:32 dev eth1 nud permanent && "
            "ip link add br0 type bridge");
    EXPECT_TRUE(lab::wait_until([] { return ping_test("eth1", &kFar, 1, 100, 0) == 1; }));
    ::setenv("PATH", (std::string("/bin:") + ::getenv("PATH")).c_str(), 1);
    start_servers();
    build_hardware();
    for (const char *name : {"iptables", "ping", "traceroute", "reinitCli"}) {
        lab::put_program(name, "#!/bin/sh\necho $0\n");
    }
}

void build_world() {
    remove_files("/tmp");
    remove_files("/var");
    lab::put("/tmp/f", "42 forty-two\n");
    lab::put("/tmp/hex", "00FF");
    lab::put("/tmp/batch", "true\n\necho batch\n");
    lab::put("/tmp/resolv", "nameserver 127.0.0.1\nnameserver 127.0.0.1\n");
    lab::put("/tmp/circle", "1, one..\n2, two..\n");
    lab::put("/tmp/modem-iface", "eth1");
    build_connection("1", "lo");
    build_connection("2", "eth1");
    lab::put("/var/wan/modem-up", "");
    lab::put("/var/wan/wired-inet-up", "");
    lab::put("/var/wan/link-up", "");
    lab::put("/var/resolv.conf", "nameserver 10.9.9.9\n");
    for (const auto &[name, target] :
         {std::pair("default", "1"), {"active", "2"}, {"modem", "2"}, {"tr069", "1"}}) {
        fs::create_symlink(target, std::string("/var/wan/") + name);
    }
    remove_routes();
}

void clean_up() {
    fd >= 0 ? void(::close(fd)) : void();
    stream != nullptr ? void(::fclose(stream)) : void();
    fd = -1;
    stream = nullptr;
    if (std::exchange(doomed, false)) {
        victim.reset();
    }
}

void doom_daemon() {
    start_daemon();
    doomed = true;
}

void open_file() {
    fd = ::open("/tmp/f", O_RDWR | O_CLOEXEC);
}

void open_socket() {
    fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void open_datagram() {
    fd = bound(SOCK_DGRAM, 999);
    sockaddr_in here = rk::inet_endpoint(INADDR_LOOPBACK, 999);
    ::sendto(fd, "data", 4, 0, rk::as_sockaddr(here), sizeof here);
}

void open_stream() {
    circ_open_and_write("/tmp/sizes", 9, 4, ""); // sets the size of a record
    stream = ::fopen("/tmp/circle", "r+e");
}

void start_daemon() {
    if (!victim) {
        victim.emplace("victim", [] { ::signal(SIGUSR1, SIG_IGN); });
    }
    lab::put("/tmp/pid", std::to_string(victim->pid()) + "\n");
}

void add_routes() {
    route_add(0x0a020000, 0xffff0000, kFar, nullptr);
    route_add_host(0x0a030001, kFar, nullptr);
    route_add_default(kFar, nullptr);
}

} // namespace torture
