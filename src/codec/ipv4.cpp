#include <routerkit/conversions.h>

#include "codec/text_ring.h"
#include "support/build.h"
#include "support/bytes.h"

namespace {

uint32_t digit_value(char character) {
    return static_cast<uint32_t>(character) - '0'; // more than 9 for anything else
}

// Steps over an octet of one to three digits; null for anything else.
inline const char *parse_plain_octet(const char *text, uint32_t &octet) {
    octet = digit_value(text[0]);
    if (octet > 9) {
        return nullptr;
    }
    uint32_t digit = digit_value(text[1]);
    if (digit > 9) {
        return text + 1;
    }
    octet = octet * 10 + digit;
    digit = digit_value(text[2]);
    if (digit > 9) {
        return text + 2;
    }
    octet = octet * 10 + digit;
    return octet < 256 && digit_value(text[3]) > 9 ? text + 3 : nullptr;
}

// Steps over a number as strtoul reads it in base 10, of which only 0 to 255 will do: white space,
// a sign, any count of digits.
const char *parse_any_octet(const char *text, uint8_t &octet) {
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        ++text;
    }
    bool negative = *text == '-';
    if (*text == '-' || *text == '+') {
        ++text;
    }
    const char *digits = text;
    uint32_t value = 0;
    for (; digit_value(*text) <= 9; ++text) {
        if (value < 256) { // a larger number stays too large
            value = value * 10 + digit_value(*text);
        }
    }
    if (text == digits || value > 255 || (negative && value != 0)) {
        return nullptr;
    }
    octet = static_cast<uint8_t>(value);
    return text;
}

// Four octets and the dots between, as nearly every text has them, without detours. Returns where
// the address ends; null for a text that needs the longer look below, as all do in a library built
// for size.
const char *parse_plain(const char *text, uint32_t &address) {
    if constexpr (rk::kForSize) {
        return nullptr;
    }
    uint32_t value = 0;
#pragma GCC unroll 4
    for (int field = 0; field < 4; ++field) {
        uint32_t octet;
        if (field != 0 && *text++ != '.') {
            return nullptr;
        }
        text = parse_plain_octet(text, octet);
        if (text == nullptr) {
            return nullptr;
        }
        value = value << 8 | octet;
    }
    address = value;
    return text;
}

// Each octet is stored as soon as it is accepted. Returns where the fourth ends, or null.
const char *parse_any(const char *text, uint8_t *octets) {
    for (int field = 0; field < 4; ++field) {
        if (field != 0 && *text++ != '.') {
            return nullptr;
        }
        text = parse_any_octet(text, octets[field]);
        if (text == nullptr) {
            return nullptr;
        }
    }
    return text;
}

inline const char *parse(const char *text, uint32_t &address) {
    const char *end = parse_plain(text, address);
    if (end == nullptr) {
        uint8_t octets[4] = {};
        end = parse_any(text, octets);
        address = rk::load_be32(octets);
    }
    return end;
}

// value / 10 for a value of up to 255, without a division.
constexpr uint32_t tenth(uint32_t value) {
    return value * 205 >> 11;
}

// The low 8 bits in decimal; returns the place behind the last digit.
inline char *put_octet(char *out, uint32_t address) {
    uint32_t value = address & 0xff;
    uint32_t tens = tenth(value);
    auto units = static_cast<char>('0' + value - tens * 10);
    if (value >= 100) {
        uint32_t hundreds = value >= 200 ? 2 : 1;
        out[0] = static_cast<char>('0' + hundreds);
        out[1] = static_cast<char>('0' + tens - hundreds * 10);
        out[2] = units;
        return out + 3;
    }
    if (value >= 10) {
        out[0] = static_cast<char>('0' + tens);
        out[1] = units;
        return out + 2;
    }
    out[0] = units;
    return out + 1;
}

inline int put_address(char *buffer, uint32_t address) {
    char *out = buffer;
#pragma GCC unroll rk::kForSize ? 1 : 4
    for (int shift = 24; shift >= 0; shift -= 8) {
        out = put_octet(out, address >> shift);
        *out++ = '.';
    }
    *--out = '\0'; // in place of the last dot
    return static_cast<int>(out - buffer);
}

} // namespace

int ipv4_itostr(char *buffer, uint32_t address) {
    return put_address(buffer, address);
}

int ipv4_ntostr(char *buffer, const void *address) {
    return put_address(buffer, rk::load_be32(static_cast<const uint8_t *>(address)));
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

// Counts in all eight nibbles at once: x - x/2 - x/4 - x/8 is the number of one bits of a nibble x.
// (The compiler's own count would bring a function and a table of its runtime along.)
unsigned ipv4_itow(uint32_t mask) {
    uint32_t counts = mask;
    for (int shift = 1; shift <= 3; ++shift) {
        mask = mask >> 1 & 0x77777777;
        counts -= mask;
    }
    return ((counts + (counts >> 4)) & 0x0f0f0f0f) * 0x01010101 >> 24;
}

uint32_t ipv4_wtoi(unsigned width) {
    return width == 0 ? 0 : 0xffffffffU << ((32 - width) % 32);
}

int ipv4_isimask(uint32_t value) {
    return (value & (value + 1)) == 0 ? 1 : 0;
}

int ipv4_isip(const char *text) {
    uint32_t address;
    const char *end = parse(text, address);
    return end != nullptr && *end == '\0' ? 1 : 0;
}

char *ipv4_aton(void *out, const char *text) {
    auto *octets = static_cast<uint8_t *>(out);
    uint32_t address;
    const char *end = parse_plain(text, address);
    if (end == nullptr) {
        end = parse_any(text, octets);
    } else {
        rk::store_be32(octets, address);
    }
    return const_cast<char *>(end);
}

uint32_t ipv4_atoi(const char *text) {
    uint32_t address;
    return parse(text, address) != nullptr ? address : 0;
}

int ipv4_ismask(const char *text) {
    return ipv4_isip(text) != 0 ? ipv4_isimask(ipv4_atoi(text)) : 0;
}
