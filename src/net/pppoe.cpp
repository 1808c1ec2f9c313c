#include <routerkit/pppoe.h>

#include <cstring>

#include <net/if.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <routerkit/conversions.h>

#include "support/bytes.h"
#include "support/socket.h"

using rk::ControlSocket;
using rk::fail;
using rk::IfRequest;
using rk::retry_eintr;

namespace {

// RFC 2516, section 4: version and type, code, session, length; the payload behind them.
constexpr size_t kCodeOffset = 1;
constexpr size_t kSessionOffset = 2;
constexpr size_t kLengthOffset = 4;
constexpr size_t kHeaderSize = 6;
constexpr uint8_t kPadtCode = 0xa7;
constexpr uint8_t kTerminateRequest[] = {
    0x11, 0x00, 0,   0,   0,   18, // session data
    0xc0, 0x21,                    // PPP (RFC 1661): LCP
    5,    2,    0,   16,           // a Terminate-Request, number 2
    'U',  's',  'e', 'r', ' ', 'r', 'e', 'q', 'u', 'e', 's', 't',
};

// A link-layer address: of an interface, or of a station behind it.
struct LinkAddress : sockaddr_ll {
    sockaddr *get() { return reinterpret_cast<sockaddr *>(this); }
};

constexpr sockaddr_in kAnyHost = {AF_INET, 0, {INADDR_ANY}, {}};

// An interface that takes no IPv4 socket is not used.
bool takes_inet_socket(const char *ifname) {
    ControlSocket inet;
    if (!inet) {
        return false;
    }
    rk::bind_to_device(inet.get(), ifname); // as far as the host may
    return ::bind(inet.get(), rk::as_sockaddr(kAnyHost), sizeof kAnyHost) == 0;
}

// Binds the socket to an interface and turns the address that it then has into the peer's.
int address_peer(int fd, int ifindex, const void *peer_mac, LinkAddress &address) {
    socklen_t size = sizeof address;
    address.sll_family = AF_PACKET;
    address.sll_protocol = rk::swap_be(uint16_t{ETH_P_PPP_SES});
    address.sll_ifindex = ifindex;
    if (::bind(fd, address.get(), size) != 0 || ::getsockname(fd, address.get(), &size) != 0) {
        return -1;
    }
    if (address.sll_halen != ETH_ALEN || mac_isnull(peer_mac) != 0) {
        return fail(EINVAL);
    }
    std::memcpy(address.sll_addr, peer_mac, ETH_ALEN);
    return 0;
}

bool send_frame(int fd, LinkAddress &to, const uint8_t *frame, size_t size) {
    return retry_eintr([&] {
               return ::sendto(fd, frame, size, MSG_NOSIGNAL, to.get(), sizeof to);
           }) == static_cast<ssize_t>(size);
}

// The session id goes out as it lies in memory.
int send_both_frames(int fd, LinkAddress &to, uint16_t session) {
    uint8_t frame[sizeof kTerminateRequest];
    std::memcpy(frame, kTerminateRequest, sizeof frame);
    std::memcpy(frame + kSessionOffset, &session, sizeof session);
    if (!send_frame(fd, to, frame, sizeof frame)) {
        return -1;
    }
    frame[kCodeOffset] = kPadtCode;
    rk::store_be16(frame + kLengthOffset, 0);
    to.sll_protocol = rk::swap_be(uint16_t{ETH_P_PPP_DISC});
    return send_frame(fd, to, frame, kHeaderSize) ? 0 : -1;
}

} // namespace

int send_ppp_msg(uint16_t session, const void *peer_mac, const char *ifname) {
    ControlSocket packets(SOCK_DGRAM, AF_PACKET);
    if (!packets) {
        return -1;
    }
    IfRequest request = IfRequest::cut(ifname);
    if (request.run(packets, SIOCGIFINDEX) < 0) {
        return 0;
    }
    const int ifindex = request.record().ifr_ifindex;
    if (request.run(packets, SIOCGIFFLAGS) < 0) {
        return -1;
    }
    const int flags = request.record().ifr_flags;
    if ((flags & IFF_UP) == 0) {
        return 0;
    }
    if ((flags & (IFF_LOOPBACK | IFF_NOARP)) != 0) {
        return fail(EINVAL);
    }
    LinkAddress peer = {};
    if (!takes_inet_socket(request.record().ifr_name) ||
        address_peer(packets.get(), ifindex, peer_mac, peer) != 0) {
        return -1;
    }
    return send_both_frames(packets.get(), peer, session);
}
