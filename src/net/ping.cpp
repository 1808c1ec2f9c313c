#include <routerkit/ping.h>

#include <cstddef>
#include <cstring>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <routerkit/clocks.h>
#include <routerkit/conversions.h>
#include <routerkit/sockets.h>

#include "net/inet.h"
#include "support/bytes.h"
#include "support/chars.h"
#include "support/deadline.h"
#include "support/log.h"
#include "support/socket.h"
#include "support/text_buffer.h"

using rk::Deadline;
using rk::log_at;
using rk::retry_eintr;
using rk::UniqueFd;

namespace {

constexpr unsigned kVerbose = 1;

constexpr uint8_t kEchoReply = 0;
constexpr uint8_t kEchoRequest = 8;
constexpr uint16_t kSequence = 1;
constexpr char kPayload[] = "Hello, world!";

constexpr size_t kLargestReply = 1024; // IP header included

// The sum of RFC 1071, folded: 0xffff over a message that carries its right checksum.
unsigned internet_sum(const uint8_t *bytes, size_t size) {
    unsigned sum = 0; // room for the words of the largest IP datagram
    for (size_t i = 0; i < size; ++i) {
        sum += i % 2 == 0 ? unsigned{bytes[i]} << 8 : bytes[i];
    }
    sum = (sum >> 16) + (sum & 0xffff);
    return (sum >> 16) + (sum & 0xffff);
}

// The ICMP echo message of RFC 792.
struct EchoMessage {
    uint8_t type;
    uint8_t code;
    uint8_t checksum[2];
    uint16_t tag[2]; // identifier and sequence number, in host order: both come back as they went
    unsigned char payload[56]; // as in Chars
};
static_assert(sizeof(EchoMessage) == 64);

constexpr size_t kHeaderSize = offsetof(EchoMessage, payload);
constexpr size_t kTotalSizeEnd = 4; // of RFC 791's header

EchoMessage make_request(uint16_t identifier) {
    EchoMessage request;
    std::memset(&request, 0, sizeof request);
    request.type = kEchoRequest;
    request.tag[0] = identifier;
    request.tag[1] = kSequence;
    std::memcpy(request.payload, kPayload, sizeof kPayload);
    unsigned sum = internet_sum(reinterpret_cast<const uint8_t *>(&request), sizeof request);
    rk::store_be16(request.checksum, static_cast<uint16_t>(~sum));
    return request;
}

// Is the datagram, from its IP header (RFC 791) on, a sound reply to the request?
bool answers(const uint8_t *datagram, size_t size, const EchoMessage &request) {
    if (size < kTotalSizeEnd) {
        return false;
    }
    const size_t header_size = size_t{4} * (datagram[0] & 15U);
    const size_t total_size = rk::load_be16(datagram + kTotalSizeEnd - 2);
    // What was cut on receipt is not judged by its beginning.
    if (total_size > size || total_size < header_size + kHeaderSize) {
        return false;
    }
    const uint8_t *message = datagram + header_size;
    const size_t message_size = total_size - header_size;
    return message[0] == kEchoReply && message[1] == 0 &&
           std::memcmp(message + offsetof(EchoMessage, tag), request.tag, sizeof request.tag) ==
               0 &&
           internet_sum(message, message_size) == 0xffff &&
           std::strncmp(reinterpret_cast<const char *>(message + kHeaderSize), kPayload,
                        message_size - kHeaderSize) == 0;
}

// What a verbose test logs: the interface, the addresses, and how it ended.
class Progress {
  public:
    Progress(bool verbose, const char *ifname, const uint32_t *addrs, unsigned count)
        : verbose_(verbose) {
        if (!verbose_) {
            return;
        }
        text_.append(ifname != nullptr ? ifname : "").append(" ping");
        for (unsigned i = 0; i < count; ++i) {
            rk::Chars<16> address;
            ipv4_itostr(address, addrs[i]);
            text_.append(' ').append(address);
        }
    }
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // For `return progress.failed(step);`, straight after the call that failed.
    int failed(const char *step) {
        if (verbose_) {
            text_.append(step);
            log_at(LOG_ERR, "%s failed: %m", text_.c_str());
        }
        return -1;
    }

    void answered(uint32_t milliseconds) const {
        if (verbose_) {
            log_at(LOG_NOTICE, "%s reply received in %d.%03d seconds", text_.c_str(),
                   static_cast<int>(milliseconds / 1000), static_cast<int>(milliseconds % 1000));
        }
    }

  private:
    bool verbose_;
    rk::TextBuffer<256> text_;
};

bool send_to_each(int fd, const EchoMessage &request, const uint32_t *addrs, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        if (rk::send_to(fd, &request, sizeof request, addrs[i], 0) < 0) {
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
    const EchoMessage request = make_request(static_cast<uint16_t>(::getpid()));
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
    if (!answers(reply, static_cast<size_t>(size), request)) {
        return 0;
    }
    progress.answered(uptime_getms() - start);
    return 1;
}
