#include <routerkit/conversions.h>

#include <cstring>

#include <routerkit/strings.h>

#include "codec/text_ring.h"
#include "support/build.h"
#include "support/hex_digits.h"

namespace {

constexpr size_t kMacLength = 6;
constexpr uint8_t kZero[kMacLength] = {};

// The six steps of reading and writing are unrolled below: a quarter to a third of the time goes
// into the loop otherwise.
constexpr int kStepsAtOnce = rk::kForSize ? 1 : 6;

const uint8_t *as_bytes(const void *mac) {
    return static_cast<const uint8_t *>(mac);
}

} // namespace

int mac_ntostr(char *buffer, const void *mac) {
    const uint8_t *byte = as_bytes(mac);
    char *out = buffer;
#pragma GCC unroll kStepsAtOnce
    for (size_t i = 0; i < kMacLength; ++i) {
        rk::put_hex_pair(out, byte[i]);
        out[2] = ':';
        out += 3;
    }
    *--out = '\0'; // in place of the last colon
    return static_cast<int>(out - buffer);
}

char *mac_ntoa(const void *mac) {
    char *slot = rk::next_address_text();
    mac_ntostr(slot, mac);
    return slot;
}

char *mac_ntoa_3(const void *mac) {
    const uint8_t *byte = as_bytes(mac);
    return strf("%02x:%02x:%02x:%02x:%02x:%02x", byte[0], byte[1], byte[2], byte[3], byte[4],
                byte[5]);
}

char *mac_ntoa_2(const void *mac) {
    const uint8_t *byte = as_bytes(mac);
    return strf("%02x%02x%02x%02x%02x%02x", byte[0], byte[1], byte[2], byte[3], byte[4], byte[5]);
}

int mac_aton(void *mac, const char *text) {
    auto *byte = static_cast<uint8_t *>(mac);
    const char *at = text;
#pragma GCC unroll kStepsAtOnce
    for (size_t i = 0; i < kMacLength; ++i) {
        if (i != 0 && (*at == ':' || *at == '-')) [[likely]] {
            ++at;
        }
        int pair = rk::read_hex_pair(at);
        if (pair < 0) {
            return 0;
        }
        byte[i] = static_cast<uint8_t>(pair);
        at += 2;
    }
    return static_cast<int>(at - text);
}

int mac_copy(void *destination, const void *source) {
    std::memmove(destination, source, kMacLength);
    return 0;
}

int mac_is_equal(const void *left, const void *right) {
    return std::memcmp(left, right, kMacLength) == 0 ? 1 : 0;
}

int mac_isnull(const void *mac) {
    return mac == nullptr || mac_is_equal(mac, kZero) != 0 ? 1 : 0;
}

int mac_is_multicast(const void *mac) {
    return as_bytes(mac)[0] & 1;
}

int mac_is_ipv4_multicast(const void *mac) {
    const uint8_t *byte = as_bytes(mac);
    return byte[0] == 0x01 && byte[1] == 0x00 && byte[2] == 0x5e ? 1 : 0;
}

int mac_is_ipv6_multicast(const void *mac) {
    const uint8_t *byte = as_bytes(mac);
    return byte[0] == 0x33 && byte[1] == 0x33 ? 1 : 0;
}

int mac_is_dns_multicast(const void *mac) {
    bool mapped = mac_is_ipv4_multicast(mac) != 0 || mac_is_ipv6_multicast(mac) != 0;
    return mapped && as_bytes(mac)[kMacLength - 1] == 0xfb ? 1 : 0;
}
