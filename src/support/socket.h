// Socket steps that several network families share.
#pragma once

#include <cstdint>
#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "support/bytes.h"
#include "support/chars.h"
#include "support/owning.h"

namespace rk {

// An IPv4 endpoint; the address in integer form, the port as a number.
inline sockaddr_in inet_endpoint(uint32_t address, uint16_t port) {
    sockaddr_in endpoint = {};
    endpoint.sin_family = AF_INET;
    endpoint.sin_port = swap_be(port);
    endpoint.sin_addr.s_addr = swap_be(address);
    return endpoint;
}

inline const sockaddr *as_sockaddr(const sockaddr_in &endpoint) {
    return reinterpret_cast<const sockaddr *>(&endpoint);
}

// The first IPv4 address that the system's resolver knows for a host: 0, or -1 with EHOSTUNREACH.
// As gethostbyname, which threads could not share. A dotted address is taken without the look at
// the resolver's configuration that the C library would have.
inline int find_host(const char *host, in_addr *out) {
    if (host[std::strspn(host, "0123456789.")] == '\0' && ::inet_aton(host, out) != 0) {
        return 0;
    }
    Chars<4096> room;
    hostent entry;
    hostent *found = nullptr;
    int error = 0;
    if (::gethostbyname_r(host, &entry, room, sizeof room, &found, &error) != 0 ||
        found == nullptr || found->h_addrtype != AF_INET || found->h_addr_list[0] == nullptr) {
        return fail(EHOSTUNREACH);
    }
    std::memcpy(out, found->h_addr_list[0], sizeof *out);
    return 0;
}

// Makes a socket use one interface only; the name goes to the kernel with its NUL. The kernel would
// cut a longer name to 15 characters and take another interface: such a name is ENODEV here.
inline int bind_to_device(int fd, const char *ifname) {
    size_t length = std::strlen(ifname);
    return length < IFNAMSIZ ? ::setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, ifname,
                                            static_cast<socklen_t>(length + 1))
                             : fail(ENODEV);
}

// Puts a name into a kernel record's field of IFNAMSIZ bytes. One of more than 15 characters names no interface: it must
// never be taken for the one that has its first 15, so it is refused with ENODEV.
[[nodiscard]] inline int set_device_name(char *field, const char *ifname) {
    size_t length = std::strlen(ifname);
    if (length >= IFNAMSIZ) {
        return fail(ENODEV);
    }
    std::memcpy(field, ifname, length + 1);
    return 0;
}

// A throw-away socket that carries an ioctl to the network code.
class ControlSocket : public UniqueFd {
  public:
    explicit ControlSocket(int type = SOCK_DGRAM, int family = AF_INET)
        : UniqueFd(::socket(family, type | SOCK_CLOEXEC, 0)) {}

    // The ioctl's own result, negative on failure. A driver may wait, and be interrupted in it.
    int run(unsigned long request, void *record) const {
        return retry_eintr([&] { return call(::ioctl, request, record); });
    }

  private:
    // The C libraries do not agree on the type of a request: unsigned long, or int.
    template <typename Request>
    int call(int (*ioctl)(int, Request, ...), unsigned long request, void *record) const {
        return ioctl(get(), static_cast<Request>(request), record);
    }
};

// One interface's request to the kernel or its driver (struct ifreq of <net/if.h>).
class IfRequest {
  public:
    // A name of more than 15 characters names no interface: every run fails with ENODEV.
    explicit IfRequest(const char *ifname) : IfRequest(ifname, std::strlen(ifname)) {}

    // Takes the first 15 characters of a longer name.
    static IfRequest cut(const char *ifname) { return {ifname, strnlen(ifname, IFNAMSIZ - 1)}; }

    [[nodiscard]] ifreq &record() { return record_; }
    [[nodiscard]] const ifreq &record() const { return record_; }

    // The ioctl's own result, negative on failure.
    int run(const ControlSocket &control, unsigned long request) {
        return valid_ ? control.run(request, &record_) : fail(ENODEV);
    }

  private:
    IfRequest(const char *ifname, size_t length) : valid_(length < IFNAMSIZ) {
        if (valid_) {
            std::memcpy(record_.ifr_name, ifname, length);
        }
    }

    ifreq record_ = {};
    bool valid_;
};

} // namespace rk
