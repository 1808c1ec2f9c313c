#include <routerkit/conversions.h>

#include <cstring>

#include "codec/text_ring.h"
#include "support/bytes.h"

namespace {

// One number as strtoul reads it in base 10, of which only 0 to 255 will do: steps over white
// space, a sign and the digits. False when there are no digits or the number is out of range.
bool parse_octet(const char *&text, uint32_t &octet) {
    const char *at = text;
    while (*at == ' ' || (*at >= '\t' && *at <= '\r')) {
        ++at;
    }
    bool negative = *at == '-';
    if (*at == '-' || *at == '+') {
        ++at;
    }
    const char *digits = at;
    uint32_t value = 0;
    for (; *at >= '0' && *at <= '9'; ++at) {
        if (value < 256) {
            value = value * 10 + static_cast<uint32_t>(*at - '0');
        }
    }
    if (at == digits || value > 255 || (negative && value != 0)) {
        return false;
    }
    text = at;
    octet = value;
    return true;
}

// Four octets and the dots between, each handed to `store` as soon as it is accepted. Where the
// fourth ends, or null.
template <typename Store>
const char *parse_address(const char *text, Store store) {
    for (int field = 0; field < 4; ++field) {
        uint32_t octet;
        if ((field != 0 && *text++ != '.') || !parse_octet(text, octet)) {
            return nullptr;
        }
        store(field, octet);
    }
    return text;
}

char *put_octet(char *out, uint32_t value) {
    value &= 0xff;
    if (value >= 100) {
        *out++ = static_cast<char>('0' + value / 100);
    }
    if (value >= 10) {
        *out++ = static_cast<char>('0' + value / 10 % 10);
    }
    *out++ = static_cast<char>('0' + value % 10);
    return out;
}

} // namespace

int ipv4_itostr(char *buffer, uint32_t address) {
    char *out = put_octet(buffer, address >> 24);
    *out++ = '.';
    out = put_octet(out, address >> 16);
    *out++ = '.';
    out = put_octet(out, address >> 8);
    *out++ = '.';
    out = put_octet(out, address);
    *out = '\0';
    return static_cast<int>(out - buffer);
}

int ipv4_ntostr(char *buffer, const void *address) {
    return ipv4_itostr(buffer, ipv4_ntoi(address));
}

char *ipv4_itoa(uint32_t address) {
    char *slot = rk::next_address_text();
    ipv4_itostr(slot, address);
    return slot;
}

char *ipv4_ntoa(const void *address) {
    return ipv4_itoa(ipv4_ntoi(address));
}

uint32_t ipv4_ntoi(const void *address) {
    return rk::load_be32(static_cast<const uint8_t *>(address));
}

uint32_t ipv4_iton(void *out, uint32_t address) {
    rk::store_be32(static_cast<uint8_t *>(out), address);
    return address;
}

unsigned ipv4_itow(uint32_t mask) {
    return static_cast<unsigned>(__builtin_popcount(mask));
}

uint32_t ipv4_wtoi(unsigned width) {
    return width == 0 ? 0 : 0xffffffffU << ((32 - width) % 32);
}

int ipv4_isimask(uint32_t value) {
    return (value & (value + 1)) == 0 ? 1 : 0;
}

int ipv4_isip(const char *text) {
    const char *end = parse_address(text, [](int, uint32_t) {});
    return end != nullptr && *end == '\0' ? 1 : 0;
}

char *ipv4_aton(void *out, const char *text) {
    auto *octets = static_cast<uint8_t *>(out);
    return const_cast<char *>(parse_address(
        text, [&](int field, uint32_t octet) { octets[field] = static_cast<uint8_t>(octet); }));
}

uint32_t ipv4_atoi(const char *text) {
    uint32_t address = 0;
    const char *end =
        parse_address(text, [&](int, uint32_t octet) { address = address << 8 | octet; });
    return end != nullptr ? address : 0;
}

int ipv4_ismask(const char *text) {
    return ipv4_isip(text) != 0 ? ipv4_isimask(ipv4_atoi(text)) : 0;
}
