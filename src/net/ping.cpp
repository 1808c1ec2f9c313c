#include <routerkit/ping.h>

#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/conversions.h>
#include <routerkit/sockets.h>
#include <routerkit/strings.h>

#include "support/bytes.h"
#include "support/deadline.h"
#include "support/log.h"
#include "support/socket.h"

using rk::Deadline;
using rk::ErrnoSaver;
using rk::log_at;
using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr unsigned kVerbose = 1;

// The ICMP echo message of RFC 792: where its fields stand, and what goes into them.
constexpr size_t kChecksumOffset = 2;
constexpr size_t kIdentifierOffset = 4;
constexpr size_t kSequenceOffset = 6;
constexpr size_t kHeaderSize = 8;
constexpr size_t kRequestSize = 64;
constexpr uint8_t kEchoReply = 0;
constexpr uint8_t kEchoRequest = 8;
constexpr uint16_t kSequence = 1;
constexpr char kPayload[] = "Hello, world!";

constexpr size_t kLargestReply = 1024; // IP header included

// The sum of RFC 1071, folded: 0xffff over a message that carries its right checksum.
unsigned internet_sum(const uint8_t *bytes, size_t size) {
    unsigned sum = 0; // room for the words of the largest IP datagram
    for (; size > 1; bytes += 2, size -= 2) {
        sum += rk::load_be16(bytes);
    }
    if (size != 0) {
        sum += unsigned{*bytes} << 8;
    }
    sum = (sum >> 16) + (sum & 0xffff);
    return (sum >> 16) + (sum & 0xffff);
}

struct EchoRequest {
    uint8_t bytes[kRequestSize] = {};

    explicit EchoRequest(uint16_t identifier) {
        bytes[0] = kEchoRequest;
        // In host order: the answering host returns both fields as they came.
        std::memcpy(bytes + kIdentifierOffset, &identifier, sizeof identifier);
        std::memcpy(bytes + kSequenceOffset, &kSequence, sizeof kSequence);
        std::memcpy(bytes + kHeaderSize, kPayload, sizeof kPayload);
        rk::store_be16(bytes + kChecksumOffset,
                       static_cast<uint16_t>(~internet_sum(bytes, sizeof bytes)));
    }

    // Is the datagram, from its IP header (RFC 791) on, a sound reply to this request?
    [[nodiscard]] bool answered_by(const uint8_t *datagram, size_t size) const {
        rk::ByteReader ip(datagram, size);
        const size_t header_size = size_t{4} * (ip.u8() & 15U);
        ip.take(1); // type of service
        const size_t total_size = ip.be16();
        // What was cut on receipt is not judged by its beginning.
        if (!ip.ok() || total_size > size || total_size < header_size + kHeaderSize) {
            return false;
        }
        const uint8_t *message = datagram + header_size;
        const size_t message_size = total_size - header_size;
        return message[0] == kEchoReply && message[1] == 0 &&
               std::memcmp(message + kIdentifierOffset, bytes + kIdentifierOffset,
                           kHeaderSize - kIdentifierOffset) == 0 &&
               internet_sum(message, message_size) == 0xffff &&
               std::strncmp(reinterpret_cast<const char *>(message + kHeaderSize), kPayload,
                            message_size - kHeaderSize) == 0;
    }
};

// What a verbose test logs: the interface, the addresses, and how it ended.
class Progress {
  public:
    Progress(bool verbose, const char *ifname, const uint32_t *addrs, unsigned count)
        : verbose_(verbose) {
        if (!verbose_) {
            return;
        }
        oprintf(&cursor_, "%s ping", ifname != nullptr ? ifname : "");
        for (unsigned i = 0; i < count; ++i) {
            char address[16];
            ipv4_itostr(address, addrs[i]);
            oprintf(&cursor_, " %s", address);
        }
    }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // For `return progress.failed(step);`, straight after the call that failed.
    int failed(const char *step) {
        if (verbose_) {
            {
                ErrnoSaver keep;
                oprintf(&cursor_, "%s", step);
            }
            log_at(LOG_ERR, "%s failed: %m", text_);
        }
        return -1;
    }

    void answered(uint32_t milliseconds) const {
        if (verbose_) {
            log_at(LOG_NOTICE, "%s reply received in %d.%03d seconds", text_,
                   static_cast<int>(milliseconds / 1000), static_cast<int>(milliseconds % 1000));
        }
    }

  private:
    bool verbose_;
    char text_[256];
    str_cursor_t cursor_ = {text_, text_ + sizeof text_};
};

bool send_to_each(int fd, const EchoRequest &request, const uint32_t *addrs, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        const sockaddr_in host = rk::inet_endpoint(addrs[i], 0);
        if (retry_eintr([&] {
                return ::sendto(fd, request.bytes, sizeof request.bytes, MSG_NOSIGNAL,
                                rk::as_sockaddr(host), sizeof host);
            }) < 0) {
            return false;
        }
    }
    return true;
}

} // namespace

int ping_test(const char *ifname, const uint32_t *addrs, unsigned count, unsigned timeout_ms,
              unsigned flags) {
    const uint32_t start = uptime_getms();
    const Deadline deadline = Deadline::after(start, timeout_ms);
    Progress progress((flags & kVerbose) != 0, ifname, addrs, count);

    UniqueFd fd(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP));
    if (!fd || (ifname != nullptr && rk::bind_to_device(fd.get(), ifname) != 0)) {
        return progress.failed("");
    }
    const EchoRequest request(static_cast<uint16_t>(::getpid()));
    if (!send_to_each(fd.get(), request, addrs, count)) {
        return progress.failed(" send ICMP ECHO");
    }
    int ready = poll_sock_recv(fd.get(), deadline.time());
    if (ready <= 0) {
        return ready == 0 ? 0 : progress.failed(" wait for ICMP REPLY");
    }
    uint8_t reply[kLargestReply];
    ssize_t size = retry_eintr([&] { return ::recv(fd.get(), reply, sizeof reply, 0); });
    if (size < 0) {
        return progress.failed(" receive ICMP REPLY");
    }
    if (!request.answered_by(reply, static_cast<size_t>(size))) {
        return 0;
    }
    progress.answered(uptime_getms() - start);
    return 1;
}
