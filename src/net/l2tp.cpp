#include <routerkit/l2tp.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <netinet/in.h>
#include <sys/socket.h>

#include <routerkit/clocks.h>
#include <routerkit/conversions.h>
#include <routerkit/sockets.h>

#include "net/inet.h"
#include "support/bytes.h"
#include "support/chars.h"
#include "support/log.h"
#include "support/socket.h"

using rk::retry_eintr;
using rk::store_be16;
using rk::UniqueFd;

static_assert(offsetof(l2tp_buf_t, length) == 3 * sizeof(void *) &&
                  offsetof(l2tp_buf_t, capacity) == 3 * sizeof(void *) + 4,
              "host programs read the fields");

namespace {

constexpr uint16_t kL2tpPort = 1701;
constexpr uint32_t kAnswerTimeoutMs = 2000;
constexpr int32_t kOutgoingSize = 256;

// RFC 2661, sections 3.1 and 4.1: where the fields stand.
constexpr uint8_t kControlHeader[] = {
    0xc8, 2, // a control message with a length and sequence numbers; version
    0,    0, // the length
    0,    0, // the tunnel
    0,    0, // the session
    0,    1, // Ns
    0,    0, // Nr
};
constexpr int32_t kControlHeaderSize = sizeof kControlHeader;
constexpr int32_t kAvpHeaderSize = 6;
constexpr uint8_t kMandatory = 0x80;

// Sections 4.4.1, 4.4.2, 4.4.3 and 6.4.
constexpr uint16_t kMessageTypeAvp = 0;
constexpr uint16_t kResultCodeAvp = 1;
constexpr uint16_t kAssignedTunnelIdAvp = 9;
constexpr uint16_t kStopCcn = 4;
constexpr uint16_t kGeneralRequest = 1;
constexpr std::string_view kGeneralRequestText = "General request to clear control connection";

class Packet {
  public:
    explicit Packet(l2tp_buf_t *buffer) : buffer_(buffer) {}
    ~Packet() {
        rk::ErrnoSaver keep;
        free_buf(buffer_);
    }
    Packet(const Packet &) = delete;
    Packet &operator=(const Packet &) = delete;

    explicit operator bool() const { return buffer_ != nullptr; }
    [[nodiscard]] l2tp_buf_t *get() const { return buffer_; }

  private:
    l2tp_buf_t *buffer_;
};

// Begins an AVP of so many bytes of value and makes the message longer by all of it; returns where
// the value goes.
uint8_t *append_avp(l2tp_buf_t *buffer, uint16_t type, size_t value_size) {
    const int32_t size = kAvpHeaderSize + static_cast<int32_t>(value_size);
    uint8_t *avp = buffer->data + buffer->length;
    add_header(buffer, static_cast<unsigned>(size), type);
    buffer->length += size;
    return avp + kAvpHeaderSize;
}

// One copy, for all who call it, as the next one.
[[gnu::noinline]] int append_number_avp(l2tp_buf_t *buffer, uint16_t type, uint16_t value) {
    store_be16(append_avp(buffer, type, sizeof value), value);
    return 0;
}

// Always fails: for `return failed(step);`, straight after the call that failed.
[[gnu::noinline]] int failed(const char *step) {
    rk::log_at(LOG_ERR, "l2tp_StopCCN: %s fail: %m", step);
    return -1;
}

int await_answer(int fd, uint32_t deadline) {
    int ready = poll_sock_recv(fd, deadline);
    if (ready < 0) {
        return failed("poll");
    }
    if (ready == 0) {
        rk::log_at(LOG_ERR, "l2tp_StopCCN: no answer (%m)");
        return 0;
    }
    uint8_t answer[256];
    ssize_t size = retry_eintr([&] { return ::recv(fd, answer, sizeof answer, 0); });
    return size >= 0 ? 0 : failed("rectfrom");
}

} // namespace

l2tp_buf_t *new_buf(int32_t capacity) {
    if (capacity < 1) {
        return nullptr;
    }
    const auto size = static_cast<size_t>(capacity);
    rk::MallocPtr buffer(static_cast<l2tp_buf_t *>(std::malloc(sizeof(l2tp_buf_t))));
    if (!buffer) {
        return nullptr;
    }
    auto *start = static_cast<uint8_t *>(std::malloc(size));
    if (start == nullptr) {
        return nullptr;
    }
    *buffer.get() = {start, start + size - 1, start, capacity, capacity};
    return buffer.release();
}

void free_buf(l2tp_buf_t *buffer) {
    if (buffer != nullptr) {
        std::free(buffer->start);
        std::free(buffer);
    }
}

l2tp_buf_t *new_outgoing() {
    l2tp_buf_t *buffer = new_buf(kOutgoingSize);
    if (buffer != nullptr) {
        buffer->data += kControlHeaderSize;
        buffer->length = 0;
    }
    return buffer;
}

void add_header(l2tp_buf_t *buffer, unsigned length, uint16_t type) {
    uint8_t *avp = buffer->data + buffer->length;
    avp[0] = kMandatory;
    avp[1] = static_cast<uint8_t>(length);
    store_be16(avp + 2, 0); // the IETF's own attributes
    store_be16(avp + 4, type);
}

int add_message_type_avp(l2tp_buf_t *buffer, uint16_t message_type) {
    return append_number_avp(buffer, kMessageTypeAvp, message_type);
}

int add_tunnelid_avp(l2tp_buf_t *buffer, uint16_t tunnel_id) {
    return append_number_avp(buffer, kAssignedTunnelIdAvp, tunnel_id);
}

int add_result_code_avp(l2tp_buf_t *buffer, uint16_t result, uint16_t error, const void *message,
                        size_t message_length) {
    uint8_t *value = append_avp(buffer, kResultCodeAvp, 4 + message_length);
    store_be16(value, result);
    store_be16(value + 2, error);
    if (message_length != 0) { // an empty message may have no address
        std::memcpy(value + 4, message, message_length);
    }
    return 0;
}

uint8_t *add_control_hdr(l2tp_buf_t *buffer, uint16_t tunnel_id) {
    buffer->length += kControlHeaderSize;
    buffer->data -= kControlHeaderSize;
    uint8_t *header = buffer->data;
    std::memcpy(header, kControlHeader, sizeof kControlHeader);
    store_be16(header + 2, static_cast<uint16_t>(buffer->length));
    store_be16(header + 4, tunnel_id);
    return header;
}

int l2tp_StopCCN(uint32_t peer, int tunnel_id, int assigned_id, int send_only) {
    UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd) {
        return failed("socket");
    }
    // The peer answers to the port that L2TP has, not to the one that it was asked from.
    const sockaddr_in any = rk::inet_endpoint(INADDR_ANY, kL2tpPort);
    if (send_only == 0 && ::bind(fd.get(), rk::as_sockaddr(any), sizeof any) != 0) {
        failed("bind");
        return -2;
    }
    Packet packet(new_outgoing());
    if (!packet) {
        return -1;
    }
    add_message_type_avp(packet.get(), kStopCcn);
    add_tunnelid_avp(packet.get(), static_cast<uint16_t>(assigned_id));
    add_result_code_avp(packet.get(), kGeneralRequest, 0, kGeneralRequestText.data(),
                        kGeneralRequestText.size());
    const uint8_t *message = add_control_hdr(packet.get(), static_cast<uint16_t>(tunnel_id));
    const int32_t size = packet.get()->length;

    const uint32_t deadline = uptime_getms() + kAnswerTimeoutMs;
    rk::Chars<16> address;
    ipv4_itostr(address, peer);
    rk::log_at(LOG_NOTICE, "l2tp_StopCCN[%d/%d]: sendto %s %d bytes", tunnel_id, assigned_id,
               address.data(), size);
    if (rk::send_to(fd.get(), message, static_cast<size_t>(size), peer, kL2tpPort) < 0) {
        return failed("sendto");
    }
    return send_only != 0 ? 0 : await_answer(fd.get(), deadline);
}
