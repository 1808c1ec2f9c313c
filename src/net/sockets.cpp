#include <routerkit/sockets.h>

#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/time.h>

#include <routerkit/wan.h>

#include "support/chars.h"
#include "support/deadline.h"
#include "support/socket.h"

using rk::Deadline;
using rk::fail;
using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr uint16_t kHttpPort = 80;
constexpr int kConnectTimeoutMs = 200;
constexpr timeval kTransferTimeout = {2, 0};

// Which ioctl asks for an address, and how many bytes of the answer, from where, are the result.
struct AddressKind {
    uint8_t kind;
    uint8_t offset;
    uint8_t length;
    uint16_t request;
};

constexpr uint8_t kPeerAddress = 0; // and what any other kind stands for
constexpr size_t kInetOffset = offsetof(sockaddr_in, sin_addr);

constexpr AddressKind kAddressKinds[] = {
    {2, kInetOffset, sizeof(in_addr), SIOCGIFADDR},
    {4, kInetOffset, sizeof(in_addr), SIOCGIFNETMASK},
    {8, 0, sizeof(sockaddr), SIOCGIFHWADDR},
    {kPeerAddress, kInetOffset, sizeof(in_addr), SIOCGIFDSTADDR},
};

const AddressKind &address_kind(unsigned kind) {
    const AddressKind *known = kAddressKinds;
    while (known->kind != kind && known->kind != kPeerAddress) {
        ++known;
    }
    return *known;
}

bool set_timeouts(int fd) {
    return ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kTransferTimeout, sizeof kTransferTimeout) ==
               0 &&
           ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &kTransferTimeout, sizeof kTransferTimeout) ==
               0;
}

} // namespace

int poll_sock_recv(int fd, unsigned deadline) {
    pollfd entry = {fd, POLLIN, 0};
    int ready = retry_eintr([&] {
        int left = Deadline(deadline).left();
        return left < 0 ? 0 : ::poll(&entry, 1, left);
    });
    if (ready == 0) {
        errno = ETIME;
    }
    return ready;
}

int connect_timeout(int fd, const struct sockaddr *addr, socklen_t len, int timeout_ms) {
    int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        return -1;
    }
    // An interrupted connect goes on in the kernel, like one that is in progress.
    if (::connect(fd, addr, len) != 0 && errno != EINPROGRESS && errno != EINTR) {
        return -1;
    }
    poll_sock_recv(fd, uptime_getms() + static_cast<unsigned>(timeout_ms));
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
        return -4;
    }
    if (error != 0) {
        errno = error;
        return -5;
    }
    ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    return 0;
}

int socket_connect(const char *host) {
    sockaddr_in peer = rk::inet_endpoint(0, kHttpPort);
    if (rk::find_host(host, &peer.sin_addr) != 0) {
        return -1;
    }
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!fd || !set_timeouts(fd.get()) ||
        connect_timeout(fd.get(), rk::as_sockaddr(peer), sizeof peer, kConnectTimeoutMs) != 0) {
        return -1;
    }
    return fd.release();
}

int getInAddr(const char *ifname, unsigned kind, void *out) {
    const AddressKind &wanted = address_kind(kind);
    rk::ControlSocket control;
    rk::IfRequest request(ifname);
    if (!control || request.run(control, SIOCGIFFLAGS) < 0 ||
        request.run(control, wanted.request) < 0) {
        return 0;
    }
    // Every kind of address lies in the same union, as a struct sockaddr.
    const char *address = reinterpret_cast<const char *>(&request.record().ifr_addr);
    std::memcpy(out, address + wanted.offset, wanted.length);
    return 1;
}

int wan_sockBind(int index, int fd) {
    rk::Chars<20> ifname;
    if (wan_getConIfName(static_cast<unsigned>(index), ifname) < 0) {
        return fail(ENETDOWN);
    }
    return rk::bind_to_device(fd, ifname);
}
