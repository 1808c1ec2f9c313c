#include <routerkit/conversions.h>

#include <cstring>

#include "codec/text_ring.h"
#include "support/bytes.h"

namespace {

uint32_t digit_value(char character) {
    return static_cast<uint32_t>(character) - '0'; // more than 9 for anything else
}

// One number as strtoul reads it in base 10, of which only 0 to 255 will do: steps over white
// space, a sign and the digits. Returns where it ends, or null.
const char *parse_any_octet(const char *text, uint32_t &octet) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        ++text;
    }
    bool negative = *text == '-';
    if (*text == '-' || *text == '+') {
        ++text;
    }
    const char *digits = text;
    octet = 0;
    for (; digit_value(*text) <= 9; ++text) {
        if (octet < 256) { // a longer number stays too large
            octet = octet * 10 + digit_value(*text);
        }
    }
    return text == digits || octet > 255 || (negative && octet != 0) ? nullptr : text;
}

// The same, for one to three plain digits without the detours.
const char *parse_octet(const char *text, uint32_t &octet) {
    uint32_t value = digit_value(text[0]);
    if (value > 9) {
        return parse_any_octet(text, octet);
    }
    for (int length = 1; length <= 3; ++length) {
        uint32_t digit = digit_value(text[length]);
        if (digit > 9) {
            octet = value;
            return value < 256 ? text + length : nullptr;
        }
        value = value * 10 + digit;
    }
    return parse_any_octet(text, octet);
}

// Four octets and the dots between, each handed to `store` as soon as it is accepted. Where the
// fourth ends, or null.
template <typename Store>
const char *parse_address(const char *text, Store store) {
    for (int field = 0; field < 4; ++field) {
        uint32_t octet;
        if (field != 0 && *text++ != '.') {
            return nullptr;
        }
        text = parse_octet(text, octet);
        if (text == nullptr) {
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
