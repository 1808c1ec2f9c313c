#include <routerkit/conversions.h>

#include <cstdio>
#include <cstring>

#include <arpa/inet.h>

#include "support/bytes.h"
#include "support/chars.h"
#include "support/ring.h"
#include "support/text_buffer.h"

namespace {

constexpr size_t kBytes = 16;
constexpr size_t kWords = 8;
constexpr size_t kSlotSize = 54;
constexpr size_t kSuffixSize = sizeof "/-2147483648";

constinit rk::Ring<8, kSlotSize> texts;

using Address = uint8_t[kBytes];

// Reads what stands in "2001:db8::/32". The length of the address in front; 0 for one that is not
// valid; -1, and the prefix untouched, without both parts.
int parse_prefixed(void *out, int *prefix, const char *text) {
    rk::Chars<41> address;
    int number;
    if (std::sscanf(text, "%40[^/]/%d", address.data(), &number) != 2) {
        return -1;
    }
    *prefix = number;
    return ipv6_aton(out, address);
}

// Writes the address and as much of "/prefix" as fits behind it. Returns the length, or 0.
int put_prefixed(char *buffer, size_t size, const void *address, int prefix) {
    auto length = static_cast<size_t>(ipv6_ntostr(buffer, address));
    if (length == 0) {
        return 0;
    }
    rk::TextWriter suffix(buffer + length, size - length);
    suffix.append('/').append_decimal(prefix);
    return static_cast<int>(length + suffix.size());
}

} // namespace

int ipv6_isip(const char *text) {
    Address parsed;
    return ::inet_pton(AF_INET6, text, parsed) == 1 ? 1 : 0;
}

int ipv6_aton(void *out, const char *text) {
    return ::inet_pton(AF_INET6, text, out) == 1 ? static_cast<int>(std::strlen(text)) : 0;
}

int ipv6_atonp(void *out, int *prefix, const char *text) {
    return parse_prefixed(out, prefix, text) > 0 ? 0 : -1;
}

int ipv6_ntostr(char *buffer, const void *address) {
    if (::inet_ntop(AF_INET6, address, buffer, INET6_ADDRSTRLEN) == nullptr) {
        return 0;
    }
    return static_cast<int>(std::strlen(buffer));
}

int ipv6_nptostr(char *buffer, const void *address, int prefix) {
    return put_prefixed(buffer, INET6_ADDRSTRLEN - 1 + kSuffixSize, address, prefix);
}

char *ipv6_ntoa(const void *address) {
    char *slot = texts.next();
    ipv6_ntostr(slot, address);
    return slot;
}

char *ipv6_nptoa(const void *address, int prefix) {
    char *slot = texts.next();
    put_prefixed(slot, kSlotSize, address, prefix);
    return slot;
}

uint16_t *ipv6_hton(uint16_t *out, const uint16_t *host) {
    for (size_t i = 0; i < kWords; ++i) {
        out[i] = rk::kBigEndian ? host[i] : __builtin_bswap16(host[i]);
    }
    return out;
}

uint16_t *ipv6_ntoh(uint16_t *out, const uint16_t *network) {
    return ipv6_hton(out, network); // exchanging the bytes, where they are exchanged, undoes itself
}

char *ipv6_htoa(const uint16_t *host) {
    uint16_t network[kWords];
    return ipv6_ntoa(ipv6_hton(network, host));
}

int ipv6_atoh(uint16_t *host, const char *text) {
    uint16_t network[kWords];
    int length = ipv6_aton(network, text);
    if (length != 0) {
        ipv6_ntoh(host, network);
    }
    return length;
}

int ipv6_atohp(uint16_t *host, int *prefix, const char *text) {
    uint16_t network[kWords];
    int length = parse_prefixed(network, prefix, text);
    if (length > 0) {
        ipv6_ntoh(host, network);
    }
    return length;
}
